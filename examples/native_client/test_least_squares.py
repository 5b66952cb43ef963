"""Tests of the native client: exact fits, valid and invalid arguments, leaks and threads."""

import array
import gc
import os
import sys
from concurrent.futures import ThreadPoolExecutor
from fractions import Fraction

import fit_penguins
import pytest
import velmar
from least_squares import fit

# Five points that no line fits exactly, and no quadratic either.
X = [0.0, 1.0, 2.0, 3.0, 5.0]
Y = [1.0, 2.5, 2.0, 4.0, 3.25]
DESIGN = [[1.0, x, x * x] for x in X]


def fit_exactly(design, observations):
    """The coefficients and the residual sum, from the normal equations in exact fractions."""
    rows = [[Fraction(value) for value in row] for row in design]
    wanted = [Fraction(value) for value in observations]
    unknowns = range(len(rows[0]))
    system = [
        [sum(row[i] * row[j] for row in rows) for j in unknowns]
        + [sum(row[i] * value for row, value in zip(rows, wanted, strict=True))]
        for i in unknowns
    ]
    for i in unknowns:
        pivot = next(k for k in unknowns[i:] if system[k][i])
        system[i], system[pivot] = system[pivot], system[i]
        system[i] = [value / system[i][i] for value in system[i]]
        for k in unknowns:
            if k != i:
                system[k] = [
                    a - system[k][i] * b for a, b in zip(system[k], system[i], strict=True)
                ]
    solution = [line[-1] for line in system]
    residuals = (
        sum(a * x for a, x in zip(row, solution, strict=True)) - value
        for row, value in zip(rows, wanted, strict=True)
    )
    return solution, sum(residual * residual for residual in residuals)


def close_to(numbers):
    return pytest.approx([float(number) for number in numbers], rel=1e-9)


def check_fit(design, observations, exact_design=DESIGN, exact_observations=Y):
    solution, residual_sum = fit_exactly(exact_design, exact_observations)
    coefficients, residual_sums = fit(design, observations)
    assert type(coefficients) is type(residual_sums) is velmar.double
    assert (coefficients.size, residual_sums.size) == ((1, len(solution)), (1, 1))
    assert list(coefficients[0]) == close_to(solution)
    assert list(residual_sums[0]) == close_to([residual_sum])


def column_major(rows):
    return [value for column in zip(*rows, strict=True) for value in column]


class TestArguments:
    def test_arrays(self):
        check_fit(velmar.double(DESIGN), velmar.double(Y))

    def test_arguments_stay_as_they_are(self):
        design, observations = velmar.double(DESIGN), velmar.double(Y)
        of_design = memoryview(design)
        fit(design, observations)
        assert design == velmar.double(DESIGN) and observations == velmar.double(Y)
        assert of_design.tolist() == DESIGN
        check_fit(design, observations)

    def test_writes_between_two_fits_are_seen(self):
        design, observations = velmar.double(DESIGN), velmar.double(Y)
        fit(design, observations)
        observations[0][2] = -7.5
        check_fit(design, observations, exact_observations=[1.0, 2.5, -7.5, 4.0, 3.25])

    def test_views(self):
        table = velmar.double([[9.0] * 3, *DESIGN[::-1], [9.0] * 3])
        rows = velmar.double([[0.0] * 5, Y])
        check_fit(table[5:0:-1], rows[1])

    def test_a_column_gives_columns(self):
        coefficients, residual_sums = fit(velmar.double(DESIGN), velmar.double([[y] for y in Y]))
        solution, residual_sum = fit_exactly(DESIGN, Y)
        assert (coefficients.size, residual_sums.size) == ((3, 1), (1, 1))
        assert [row[0] for row in coefficients] == close_to(solution)

    def test_several_fits_at_once(self):
        columns = [
            Y,
            [-y * y for y in Y],
            [float(i == 2) for i in range(5)],
            DESIGN[0] + [8.0, 2.0],
        ]
        observations = velmar.double(vector=sum(columns, []), size=(5, 4))
        coefficients, residual_sums = fit(velmar.double(DESIGN), observations)
        assert (coefficients.size, residual_sums.size) == ((3, 4), (1, 4))
        for number, column in enumerate(columns):
            solution, residual_sum = fit_exactly(DESIGN, column)
            assert [row[number] for row in coefficients] == close_to(solution)
            assert residual_sums[0][number] == pytest.approx(float(residual_sum), rel=1e-9)

    def test_as_many_observations_as_coefficients(self):
        coefficients, residual_sums = fit(velmar.double([[2, 1], [1, 1]]), velmar.double([7, 4]))
        assert list(coefficients[0]) == close_to([3, 1])
        assert list(residual_sums[0]) == [0.0]

    def test_one_observation(self):
        coefficients, residual_sums = fit(velmar.double([[4]]), velmar.double([[8, 2]]))
        assert (coefficients.size, residual_sums.size) == ((1, 2), (1, 2))
        assert list(coefficients[0]) == close_to([2, 0.5])

    def test_penguins(self):
        penguins = fit_penguins.read_penguins()
        design, masses = fit_penguins.make_arrays(penguins)
        exact_design = [
            [1, int(p["flipper_length_mm"]), Fraction(p["bill_length_mm"])] for p in penguins
        ]
        exact_masses = [int(p["body_mass_g"]) for p in penguins]
        assert design.size == (342, 3)
        check_fit(design, masses, exact_design, exact_masses)

    def test_program(self, capsys):
        fit_penguins.main()
        printed = capsys.readouterr().out
        assert "-5736.9 + 48.145 * flipper + 6.047 * bill" in printed


class TestBuffers:
    def test_array_and_memoryview(self):
        rows = array.array("d", sum(DESIGN, []))
        check_fit(memoryview(rows).cast("B").cast("d", (5, 3)), array.array("d", Y))

    def test_exports_of_arrays(self):
        design, observations = velmar.double(DESIGN), velmar.double(Y)
        check_fit(memoryview(design), memoryview(observations))

    def test_buffers_stay_as_they_are(self):
        observations = array.array("d", Y)
        fit(velmar.double(DESIGN), observations)
        assert observations.tolist() == Y
        observations.append(1.0)  # BufferError if the buffer were still held

    @pytest.mark.parametrize("order", ["C", "F"])
    def test_numpy(self, order):
        numpy = pytest.importorskip("numpy")
        design = numpy.array(DESIGN, order=order)
        check_fit(design, numpy.array(Y))
        expected = numpy.linalg.lstsq(design, numpy.array(Y), rcond=None)[0]
        assert list(fit(design, numpy.array(Y))[0][0]) == pytest.approx(list(expected), rel=1e-9)


def expired_rows():
    return list(velmar.double([DESIGN, DESIGN]))


GOOD = velmar.double(DESIGN)
DOUBLES = "must hold real numbers of double precision"
REFUSED = [
    ("list", lambda: DESIGN, TypeError, "must be a velmar.double or have a buffer of doubles"),
    ("None", lambda: None, TypeError, "it is <class 'NoneType'>"),
    ("class", lambda: velmar.double, TypeError, "must be a velmar.double or have a buffer"),
    ("single", lambda: velmar.single(DESIGN), TypeError, DOUBLES),
    ("int64", lambda: velmar.int64([[1, 2], [3, 5]]), TypeError, DOUBLES),
    ("logical", lambda: velmar.logical([[1, 0], [0, 1]])[:1], TypeError, DOUBLES),
    ("complex", lambda: velmar.double([[1j], [2]], is_complex=True), TypeError, DOUBLES),
    ("single buffer", lambda: array.array("f", Y), TypeError, DOUBLES),
    ("bytes", lambda: b"12345678", TypeError, DOUBLES),
    ("characters", lambda: memoryview(b"12").cast("c"), RuntimeError, "not supported: c"),
    ("strided", lambda: memoryview(array.array("d", Y))[::2], Exception, "contiguous"),
    ("expired", lambda: expired_rows()[1], RuntimeError, "locked shared pointer is null."),
    ("three dimensions", lambda: velmar.double([[[1, 2]], [[3, 4]]]), ValueError, "not 3"),
    ("no elements", lambda: velmar.double(size=(0, 3)), ValueError, "must not be empty"),
    ("view of none", lambda: GOOD[3:3], ValueError, "must not be empty"),
    ("NaN", lambda: velmar.double([[1, 2], [3, float("nan")]]), ValueError, "an infinity or a NaN"),
    ("infinity", lambda: velmar.double([float("-inf")] * 5), ValueError, "an infinity or a NaN"),
]


class TestFailures:
    @pytest.mark.parametrize("place", ["design", "observations"])
    @pytest.mark.parametrize("label, make, error, text", REFUSED, ids=[row[0] for row in REFUSED])
    def test_refused(self, place, label, make, error, text):
        good = GOOD if place == "observations" else velmar.double(Y)
        arguments = (make(), good) if place == "design" else (good, make())
        with pytest.raises(error) as caught:
            fit(*arguments)
        assert text in str(caught.value)
        if error in (TypeError, ValueError):
            assert str(caught.value).startswith(place)
        check_fit(GOOD, velmar.double(Y))

    @pytest.mark.parametrize(
        "design, observations, text",
        [
            (DESIGN, Y[:4], "design has 5 rows, but observations have 4"),
            (DESIGN, [Y, Y], "design has 5 rows, but observations have 2"),
            (DESIGN[:2], Y[:2], "2 observations cannot determine 3 coefficients"),
            ([[1.0, 2.0]], [4.0], "1 observations cannot determine 2 coefficients"),
            ([[x, 3 * x] for x in X], Y, "the 2 columns of design depend on each other: rank 1"),
            ([[0.0]] * 5, Y, "the 1 columns of design depend on each other: rank 0"),
        ],
    )
    def test_shapes_and_rank(self, design, observations, text):
        with pytest.raises(ValueError) as caught:
            fit(velmar.double(design), velmar.double(observations))
        assert str(caught.value) == text

    @pytest.mark.parametrize("arguments", [(), (GOOD,), (GOOD, GOOD, GOOD)])
    def test_number_of_arguments(self, arguments):
        with pytest.raises(TypeError):
            fit(*arguments)


def memory_in_use():
    """The resident memory of the process in bytes."""
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


LEAK_CASES = [
    ("arrays", lambda: (GOOD, velmar.double(Y))),
    ("views", lambda: (GOOD[:], velmar.double([Y, Y])[1])),
    ("buffers", lambda: (memoryview(GOOD), array.array("d", Y))),
    ("list", lambda: (DESIGN, Y)),
    ("single", lambda: (GOOD, velmar.single(Y))),
    ("single buffer", lambda: (GOOD, array.array("f", Y))),
    ("complex", lambda: (velmar.double([[1j]], is_complex=True), GOOD)),
    ("expired", lambda: (expired_rows()[0], GOOD)),
    ("shapes", lambda: (GOOD, velmar.double(Y[:2]))),
    ("rank", lambda: (velmar.double([[0.0]] * 5), velmar.double(Y))),
]


def fit_if_possible(arguments):
    try:
        fit(*arguments)
    except (RuntimeError, TypeError, ValueError):
        return False
    return True


class TestLeaks:
    @pytest.mark.parametrize("label, make", LEAK_CASES, ids=[case[0] for case in LEAK_CASES])
    def test_objects(self, label, make):
        def repeat(count):
            for _ in range(count):
                fit_if_possible(make())
            gc.collect()
            return sys.getallocatedblocks()

        repeat(20)
        before = repeat(1)
        assert (repeat(400) - before) / 400 < 0.1

    def test_reference_counts_of_the_arguments(self):
        for arguments in (
            (GOOD, velmar.double(Y)),
            (memoryview(GOOD), array.array("d", Y)),
            ([], 1),
        ):
            before = [sys.getrefcount(argument) for argument in arguments]
            for _ in range(50):
                fit_if_possible(arguments)
            assert [sys.getrefcount(argument) for argument in arguments] == before

    @pytest.mark.skipif(
        "libasan" in os.environ.get("LD_PRELOAD", ""),
        reason="AddressSanitizer keeps freed memory for a while, so use does not fall at once",
    )
    @pytest.mark.parametrize("argument", [lambda a: a, memoryview], ids=["array", "buffer"])
    @pytest.mark.parametrize("fits", [True, False], ids=["fits", "fails"])
    def test_memory_of_elements(self, argument, fits):
        rows = 50_000  # 0.8 MB of design
        of_design = array.array("d", [1.0] * rows + list(range(rows)))
        of_observations = array.array("d", range(rows if fits else rows - 1))

        def repeat(count):
            for _ in range(count):
                arguments = velmar.double(of_design, (rows, 2)), velmar.double(of_observations)
                assert fit_if_possible([argument(one) for one in arguments]) is fits
            return memory_in_use()

        before = repeat(10)
        assert repeat(100) - before < 20 * 2**20


def test_threads():
    """The threads run their fits at the same time, without the interpreter's lock."""
    rows = 20_000
    design = velmar.double(vector=[1.0] * rows + list(range(rows)), size=(rows, 2))
    observations = [velmar.double([k + 0.5 * i for i in range(rows)]) for k in range(8)]
    with ThreadPoolExecutor(4) as pool:
        results = list(pool.map(lambda one: fit(design, one)[0], observations * 4))
    for number, coefficients in enumerate(results):
        assert list(coefficients[0]) == pytest.approx([number % 8, 0.5], abs=1e-8)
