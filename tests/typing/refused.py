"""Lines that type checkers must refuse. Each line with an ignored error raises when it runs.

Both checkers report an ignore comment without an error.
"""

# ruff: noqa: B015, B018
import velmar

m = velmar.double([[1, 2], [3, 4]])
i = velmar.int8([[1, 2], [3, 4]])
c = velmar.double([[1j, 2]], is_complex=True)
b = velmar.logical([[0, 1]])

# Elements that a class refuses.
velmar.double("1")  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double(["1"])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double([None])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double([1j])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double([[1j]], size=(1, 1))  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.int8(1.5)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.int8([[1.5]])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.int8([[[1.5]]])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.int8(vector=[1.5])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double({1, 2})  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double(x for x in [1, 2])  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double(vector=[[1], [2]])  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double(vector=3)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]

# Arguments.
velmar.double(size=3)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double(size=(2.0, 3))  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double([1], is_complex=1)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double([1], is_complex=None)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.double([1], order="F")  # type: ignore[call-overload]  # pyright: ignore[reportCallIssue]
velmar.logical([1], is_complex=True)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]

# Subscripts.
m[0, 1]  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[1.0]  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[None]  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[...]  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0][1][0]  # type: ignore[index]  # pyright: ignore[reportIndexIssue]
del m[0]  # type: ignore[attr-defined]  # pyright: ignore[reportIndexIssue]

# Writes.
m[0] = 1  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0][0] = [1]  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0][0] = "1"  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0][0] = 1j  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0] = [1j, 2]  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0:1] = [1j, 2]  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
m[0][0:1] = 1  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
i[0][0] = 1.5  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
i[0] = [1.5, 2]  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
b[0][0] = 0.5  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
b[0] = [0.5, 1]  # type: ignore[list-item]  # pyright: ignore[reportArgumentType, reportCallIssue]
c[0] = 1j  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m.size = (4, 1)  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]

# Methods.
m.real()  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
m[0].imag()  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
c.noncomplex()  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
c[0].noncomplex()  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
m.toarray()  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
c[0].toarray()  # type: ignore[misc]  # pyright: ignore[reportAttributeAccessIssue]
m.reshape(2.0, 2)  # type: ignore[call-overload]  # pyright: ignore[reportArgumentType, reportCallIssue]
m.reshape(4, 1, order="F")  # type: ignore[call-overload]  # pyright: ignore[reportCallIssue]
m < m  # type: ignore[operator]  # pyright: ignore[reportOperatorIssue, reportUnusedExpression]
m + m  # type: ignore[operator]  # pyright: ignore[reportOperatorIssue, reportUnusedExpression]


class Derived(velmar.double):  # type: ignore[misc]  # pyright: ignore[reportGeneralTypeIssues]
    pass


# Tables.
velmar.html([[1, 2]])  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
velmar.summary(m, 3)  # type: ignore[arg-type, call-arg]  # pyright: ignore[reportCallIssue]
velmar.summary(m, rows="3")  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]

# Conversion.
velmar.asarray([1], float)  # type: ignore[type-var]  # pyright: ignore[reportArgumentType, reportCallIssue]
velmar.asnumpy([1])  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
velmar.save("/", [1])  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
velmar.load(3)  # type: ignore[arg-type]  # pyright: ignore[reportArgumentType]
