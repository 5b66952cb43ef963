"""Arrays as sequences of the interpreter: loops, containment, unpacking, refusals."""

import collections.abc
import ctypes
import itertools
import operator

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, contents, exact, grid, line
from helpers.cases import each, each_form, rows
from helpers.failures import raises

get_item = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.py_object, ctypes.c_ssize_t)(
    ("PySequence_GetItem", ctypes.pythonapi)
)
is_sequence = ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object)(
    ("PySequence_Check", ctypes.pythonapi)
)
is_mapping = ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object)(
    ("PyMapping_Check", ctypes.pythonapi)
)


class TestLoops:
    @each_form
    def test_list_of_numbers(self, row, is_complex):
        array = row.cls([[1, 0, 1]], is_complex=is_complex)
        assert exact(list(array[0])) == exact([array[0][i] for i in range(3)])
        assert list(array[0]) == [1, 0, 1]

    def test_list_of_views(self):
        array = velmar.int8([[1, 2], [3, 4], [5, 6]])
        views = list(array)
        assert [type(view) for view in views] == [velmar.int8] * 3
        assert [contents(view) for view in views] == [[1, 2], [3, 4], [5, 6]]

    def test_list_of_a_slice(self):
        assert list(line(10)[7::-3]) == [7.0, 4.0, 1.0]
        array = velmar.int8([[1, 2], [3, 4], [5, 6]])
        assert [contents(view) for view in array[::-2]] == [[5, 6], [1, 2]]

    @rows(
        "make",
        [
            ("nothing", lambda: velmar.double()),
            ("no_rows", lambda: velmar.double(size=(0, 3))),
            ("empty_row", lambda: velmar.double(size=(2, 0))[1]),
            ("empty_slice", lambda: line(5)[2:2]),
        ],
    )
    def test_list_of_nothing(self, make):
        assert list(make()) == []

    def test_nested_loops(self):
        nested = grid(2, 3, 4)
        array = velmar.double(nested)
        got = [number for plane in array for line_ in plane for number in line_]
        assert got == [float(i) for i in range(24)]

    def test_backwards(self):
        # reversed() subscripts the array, so its views keep the storage.
        assert list(reversed(line(4))) == [3.0, 2.0, 1.0, 0.0]
        assert [contents(view) for view in reversed(velmar.int8([[1], [2]]))] == [[2], [1]]

    def test_unpacking(self):
        array = velmar.int8([[1, 2], [3, 4]])
        first, second = array
        (a, b), (c, d) = first, second
        assert (a, b, c, d) == (1, 2, 3, 4)
        (a, b), (c, d) = array
        assert (a, b, c, d) == (1, 2, 3, 4)
        head, *tail = line(4)
        assert (head, tail) == (0.0, [1.0, 2.0, 3.0])

    def test_functions_that_take_iterables(self):
        view = line(5, velmar.int32)
        assert sum(view) == 10
        assert (min(view), max(view)) == (0, 4)
        assert tuple(view) == (0, 1, 2, 3, 4)
        assert sorted(view[::-1]) == [0, 1, 2, 3, 4]
        assert list(zip(view, view[::-1], strict=True))[0] == (0, 4)
        assert list(itertools.chain(view, view[:2])) == [0, 1, 2, 3, 4, 0, 1]
        assert [*view] == [0, 1, 2, 3, 4]

    def test_list_outlives_the_array(self):
        array = velmar.int32([[1, 2], [3, 4]])
        numbers = [list(view) for view in array]
        del array
        assert numbers == [[1, 2], [3, 4]]


class TestContainment:
    def test_numbers(self):
        view = line(5)[1::2]
        assert 1.0 in view
        assert 3 in view
        assert 2.0 not in view
        assert None not in view
        assert "1.0" not in view

    def test_nothing_is_in_an_empty_view(self):
        assert 0.0 not in line(5)[:0]
        assert 0.0 not in velmar.double()

    def test_views(self):
        array = velmar.double([[1, 2], [3, 4]])
        assert array[1] in array
        assert velmar.double([3, 4])[0] in array
        assert velmar.double([3, 4]) not in array
        assert velmar.double([5, 6])[0] not in array
        assert velmar.single([3, 4])[0] not in array
        assert [3.0, 4.0] not in array
        assert 3.0 not in array

    def test_of_a_temporary_array(self):
        assert 2 in velmar.int8([[1, 2]])[0]
        assert velmar.int8([3, 4])[0] in velmar.int8([[1, 2], [3, 4]])

    def test_not_a_number_is_not_found(self):
        number = float("nan")
        assert number not in velmar.double([[number]])[0]

    def test_counting_and_searching(self):
        view = velmar.int8([[1, 2, 1, 3]])[0]
        assert operator.countOf(view, 1) == 2
        assert operator.indexOf(view, 3) == 3
        array = velmar.int8([[1, 2], [3, 4], [1, 2]])
        assert operator.countOf(array, array[0]) == 2
        assert operator.indexOf(array, array[1]) == 1
        with pytest.raises(ValueError):
            operator.indexOf(view, 9)

    @each(CLASS_ROWS)
    def test_every_class(self, row):
        view = row.cls([[0, 1]])[0]
        assert 1 in view
        assert 7 not in view


class TestTruth:
    """An array is true when its first open dimension has a length."""

    @rows(
        "make, expected",
        [
            ("nothing", lambda: velmar.double(), False),
            ("no_rows", lambda: velmar.double(size=(0, 3)), False),
            ("empty_rows", lambda: velmar.double(size=(3, 0)), True),
            ("empty_row", lambda: velmar.double(size=(3, 0))[0], False),
            ("zero", lambda: velmar.double(0), True),
            ("false", lambda: velmar.logical([False]), True),
            ("empty_slice", lambda: line(3)[1:1], False),
        ],
    )
    def test_rows(self, make, expected):
        assert bool(make()) is expected


class TestInterfaceOfTheInterpreter:
    """The sequence slots, as extensions call them."""

    def test_is_a_sequence_and_a_mapping(self):
        array = velmar.double([1])
        assert is_sequence(array) == 1
        assert is_mapping(array) == 1

    @each_form
    def test_items(self, row, is_complex):
        array = row.cls([[1, 0], [0, 1], [1, 1]], is_complex=is_complex)
        for i in range(3):
            assert exact(contents(get_item(array, i))) == exact(contents(array[i]))
            assert exact(get_item(array[i], 1)) == exact(array[i][1])
            assert type(get_item(array, i)) is row.cls

    def test_negative_index_has_the_length_added_twice_if_need_be(self):
        # The interpreter adds the length to a negative index; the module adds it again if needed.
        view = line(5)
        assert get_item(view, -1) == 4.0
        assert get_item(view, -5) == 0.0
        assert get_item(view, -6) == 4.0
        assert get_item(view, -10) == 0.0
        with raises(IndexError, "index has an invalid value: -6"):
            get_item(view, -11)

    def test_out_of_range(self):
        with raises(IndexError, "index has an invalid value: 5"):
            get_item(line(5), 5)
        with raises(IndexError, "index has an invalid value: 0"):
            get_item(velmar.double(), 0)
        with raises(IndexError, "index has an invalid value: -1"):
            get_item(velmar.double(), -1)


class TestRefusals:
    @pytest.mark.parametrize(
        "function",
        [operator.index, complex, abs, operator.neg, operator.invert, chr],
        ids=lambda function: function.__name__,
    )
    def test_is_no_number(self, function):
        with pytest.raises(TypeError):
            function(velmar.int8([[1]]))

    @pytest.mark.parametrize("function", [int, float])
    def test_is_text_to_int_and_float(self, function):
        # int() and float() read the bytes of every buffer as digits.
        with pytest.raises(ValueError):
            function(velmar.int8([[1]]))
        assert function(velmar.uint8(b"12")) == 12

    def test_is_no_index(self):
        with raises(TypeError, "'velmar.int8' object cannot be interpreted as an integer"):
            operator.index(velmar.int8([[1]]))
        with raises(TypeError, "list indices must be integers or slices, not velmar.int8"):
            [1, 2][velmar.int8([[1]])]

    @pytest.mark.parametrize(
        "operation",
        [operator.add, operator.mul, operator.sub, operator.truediv, operator.iadd, operator.imul],
        ids=lambda operation: operation.__name__,
    )
    def test_has_no_arithmetic(self, operation):
        array = velmar.int8([[1, 2]])
        for other in (array, 2):
            with pytest.raises(TypeError):
                operation(array, other)

    def test_is_not_callable(self):
        with raises(TypeError, "'velmar.double' object is not callable"):
            velmar.double([1])()

    def test_is_no_registered_sequence(self):
        array = velmar.double([1])
        assert not isinstance(array, collections.abc.Sequence)
        assert not isinstance(array, collections.abc.Mapping)
        match array:
            case [*_]:
                matched = "sequence"
            case {}:
                matched = "mapping"
            case _:
                matched = "neither"
        assert matched == "neither"
