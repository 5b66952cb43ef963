"""str() and repr(): every form and class, views, and texts that make an equal array."""

import math

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, contents, exact, grid, line
from helpers.cases import each, each_form, rows
from helpers.failures import raises
from helpers.slice_model import text_of

FORMS = [  # array, str, the class and the end of repr
    (
        "row",
        lambda: velmar.double([[1, 2, 3]]),
        "[[1.0,2.0,3.0]]",
        "velmar.double([[1.0,2.0,3.0]])",
    ),
    (
        "column",
        lambda: velmar.double([[1], [2], [3]]),
        "[[1.0],[2.0],[3.0]]",
        "velmar.double([[1.0],[2.0],[3.0]])",
    ),
    (
        "three_dimensions",
        lambda: velmar.double(
            [[[1, 2], [3, 4], [5, 6]], [[7, 8], [9, 10], [11, 12]]],
        ),
        "[[[1.0,2.0],[3.0,4.0],[5.0,6.0]],[[7.0,8.0],[9.0,10.0],[11.0,12.0]]]",
        "velmar.double([[[1.0,2.0],[3.0,4.0],[5.0,6.0]],[[7.0,8.0],[9.0,10.0],[11.0,12.0]]])",
    ),
    ("nothing", lambda: velmar.double(), "[]", "velmar.double([])"),
    ("no_rows", lambda: velmar.double(size=(0, 3)), "[]", "velmar.double([])"),
    ("one_empty_row", lambda: velmar.double([[]]), "[[]]", "velmar.double([[]])"),
    (
        "empty_rows",
        lambda: velmar.double(size=(3, 0)),
        "[[],[],[]]",
        "velmar.double([[],[],[]])",
    ),
    (
        "empty_in_the_middle",
        lambda: velmar.double(size=(2, 0, 4)),
        "[[],[]]",
        "velmar.double([[],[]])",
    ),
    (
        "empty_at_the_end",
        lambda: velmar.int8(size=(1, 2, 0)),
        "[[[],[]]]",
        "velmar.int8([[[],[]]])",
    ),
    (
        "complex",
        lambda: velmar.double([[1 + 2j, 3 - 4j]], is_complex=True),
        "[[(1+2j),(3-4j)]]",
        "velmar.double([[(1+2j),(3-4j)]], is_complex=True)",
    ),
    (
        "complex_column",
        lambda: velmar.uint8([[1j], [2]], is_complex=True),
        "[[1j],[(2+0j)]]",
        "velmar.uint8([[1j],[(2+0j)]], is_complex=True)",
    ),
    (
        "complex_nothing",
        lambda: velmar.single(is_complex=True),
        "[]",
        "velmar.single([], is_complex=True)",
    ),
    (
        "complex_integer_without_imaginary_part",
        lambda: velmar.int32([1], is_complex=True),
        "[[(1+0j)]]",
        "velmar.int32([[(1+0j)]], is_complex=True)",
    ),
    (
        "logical",
        lambda: velmar.logical([[True, False]]),
        "[[True,False]]",
        "velmar.logical([[True,False]])",
    ),
    ("int8", lambda: velmar.int8([[1, 2]]), "[[1,2]]", "velmar.int8([[1,2]])"),
    (
        "single_digits",
        lambda: velmar.single([[0.1]]),
        "[[0.10000000149011612]]",
        "velmar.single([[0.10000000149011612]])",
    ),
    (
        "single_complex_digits",
        lambda: velmar.single([[0.1 + 0.2j]], is_complex=True),
        "[[(0.10000000149011612+0.20000000298023224j)]]",
        "velmar.single([[(0.10000000149011612+0.20000000298023224j)]], is_complex=True)",
    ),
    (
        "uint64_largest",
        lambda: velmar.uint64([[2**64 - 1]]),
        "[[18446744073709551615]]",
        "velmar.uint64([[18446744073709551615]])",
    ),
    (
        "uint64_largest_complex",
        lambda: velmar.uint64([[2**64 - 1]], is_complex=True),
        "[[(1.8446744073709552e+19+0j)]]",
        "velmar.uint64([[(1.8446744073709552e+19+0j)]], is_complex=True)",
    ),
    (
        "int64_lowest",
        lambda: velmar.int64([[-(2**63)]]),
        "[[-9223372036854775808]]",
        "velmar.int64([[-9223372036854775808]])",
    ),
    (
        "scalar",
        lambda: velmar.int16(7),
        "[[7]]",
        "velmar.int16([[7]])",
    ),
    (
        "flat_data_in_storage_order",
        lambda: velmar.int8([1, 2, 3, 4, 5, 6], size=(2, 3)),
        "[[1,3,5],[2,4,6]]",
        "velmar.int8([[1,3,5],[2,4,6]])",
    ),
    (
        "zeros",
        lambda: velmar.double(size=(2, 2)),
        "[[0.0,0.0],[0.0,0.0]]",
        "velmar.double([[0.0,0.0],[0.0,0.0]])",
    ),
    (
        "special_floats",
        lambda: velmar.double([[math.nan, math.inf], [-math.inf, -0.0]]),
        "[[nan,inf],[-inf,-0.0]]",
        "velmar.double([[nan,inf],[-inf,-0.0]])",
    ),
    (
        "special_complex",
        lambda: velmar.double(
            [[complex(math.nan, math.inf), complex(-0.0, -0.0)]], is_complex=True
        ),
        "[[(nan+infj),(-0-0j)]]",
        "velmar.double([[(nan+infj),(-0-0j)]], is_complex=True)",
    ),
    (
        "exponents",
        lambda: velmar.double([1e300, -1e-300, 1e16, 123456789.125]),
        "[[1e+300,-1e-300,1e+16,123456789.125]]",
        "velmar.double([[1e+300,-1e-300,1e+16,123456789.125]])",
    ),
]

VIEWS = [
    (
        "row",
        lambda: velmar.double([[1, 2, 3], [4, 5, 6]])[0],
        "[1.0,2.0,3.0]",
        "velmar.double([1.0,2.0,3.0])",
    ),
    (
        "first_two_rows",
        lambda: velmar.double([[1, 2], [3, 4], [5, 6]])[:2],
        "[[1.0,2.0],[3.0,4.0]]",
        "velmar.double([[1.0,2.0],[3.0,4.0]])",
    ),
    (
        "backwards",
        lambda: velmar.int8([[1, 2], [3, 4], [5, 6]])[::-2],
        "[[5,6],[1,2]]",
        "velmar.int8([[5,6],[1,2]])",
    ),
    ("backwards_numbers", lambda: line(5, velmar.int8)[::-1], "[4,3,2,1,0]", None),
    ("no_positions", lambda: line(5)[3:3], "[]", "velmar.double([])"),
    ("no_rows", lambda: velmar.double(size=(3, 0))[2:1], "[]", "velmar.double([])"),
    ("empty_rows", lambda: velmar.double(size=(3, 0))[1:], "[[],[]]", "velmar.double([[],[]])"),
    ("empty_row", lambda: velmar.double(size=(3, 0))[1], "[]", "velmar.double([])"),
    (
        "empty_in_the_middle",
        lambda: velmar.uint16(size=(2, 0, 4))[0],
        "[]",
        "velmar.uint16([])",
    ),
    (
        "complex_row",
        lambda: velmar.int8([[1, 2j], [3, 4]], is_complex=True)[0],
        "[(1+0j),2j]",
        "velmar.int8([(1+0j),2j], is_complex=True)",
    ),
    (
        "complex_slice",
        lambda: velmar.int8([[1, 2j], [3, 4]], is_complex=True)[1][::-1],
        "[(4+0j),(3+0j)]",
        "velmar.int8([(4+0j),(3+0j)], is_complex=True)",
    ),
    (
        "complex_nothing",
        lambda: velmar.int8([[1, 2j]], is_complex=True)[1:],
        "[]",
        "velmar.int8([], is_complex=True)",
    ),
    (
        "plane",
        lambda: velmar.int32([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])[1],
        "[[5,6],[7,8]]",
        "velmar.int32([[5,6],[7,8]])",
    ),
    (
        "rows_of_a_plane",
        lambda: velmar.int32([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])[1][::-1],
        "[[7,8],[5,6]]",
        "velmar.int32([[7,8],[5,6]])",
    ),
    (
        "logical_row",
        lambda: velmar.logical([[1, 0], [0, 0]])[0],
        "[True,False]",
        "velmar.logical([True,False])",
    ),
    ("number_is_no_view", lambda: velmar.int32([[7]])[0][0], "7", "7"),
]

# Lists of up to 4096 elements are made into text at once.
LONG_SIZES = [
    (1, 4096),
    (1, 4097),
    (4097, 1),
    (2, 4096),
    (2, 4095, 2),
    (2, 4096, 2),
    (1, 2, 4097, 1, 2),
    (3, 1366, 5),
]

NAMES = {"velmar": velmar, "nan": math.nan, "inf": math.inf}


class TestForms:
    @rows("make, text, constructor", FORMS)
    def test_rows(self, make, text, constructor):
        assert str(make()) == text
        assert repr(make()) == constructor

    @rows("make, text, constructor", VIEWS)
    def test_views(self, make, text, constructor):
        assert str(make()) == text
        if constructor is not None:
            assert repr(make()) == constructor

    @each_form
    def test_every_class(self, row, is_complex):
        array = row.cls([[1, 0, 1], [0, 0, 1]], is_complex=is_complex)
        element = {"float": "{}.0".format, "logical": lambda i: str(bool(i))}.get(row.kind, str)
        if is_complex:
            element = "({}+0j)".format
            assert str(row.cls([0, 1], is_complex=True)) == "[[0j,(1+0j)]]"
            one, zero = "(1+0j)", "0j"
        else:
            one, zero = element(1), element(0)
        text = f"[[{one},{zero},{one}],[{zero},{zero},{one}]]"
        end = ", is_complex=True)" if is_complex else ")"
        assert str(array) == text
        assert repr(array) == f"velmar.{row.word}({text}{end}"

    @each(CLASS_ROWS)
    def test_limits(self, row):
        array = row.cls([row.low, row.high])
        assert str(array) == f"[[{row.low!r},{row.high!r}]]"

    @each_form
    def test_is_the_text_of_the_contents(self, row, is_complex):
        array = row.cls([[[i % 2, 1] for i in range(3)]] * 2, is_complex=is_complex)
        for view in (array, array[1], array[1][2], array[::-1], array[0][::2], array[5:]):
            assert str(view) == text_of(contents(view))

    @pytest.mark.parametrize("size", LONG_SIZES)
    def test_long_texts(self, size):
        array = velmar.uint16(vector=range(math.prod(size)), size=size)
        text = text_of(contents(array))
        assert str(array) == text
        assert repr(array) == f"velmar.uint16({text})"

    def test_results_are_plain_text(self):
        array = velmar.double([1])
        assert type(str(array)) is str
        assert type(repr(array)) is str

    def test_other_ways_to_the_same_texts(self):
        array = velmar.int8([[1, 2]])
        assert f"{array}" == "[[1,2]]"
        assert format(array) == "[[1,2]]"
        assert f"{array!r}" == "velmar.int8([[1,2]])"
        assert str([array]) == "[velmar.int8([[1,2]])]"
        assert ascii(array) == "velmar.int8([[1,2]])"
        assert array.__str__() == "[[1,2]]"
        assert array.__repr__() == "velmar.int8([[1,2]])"

    def test_texts_are_made_anew(self):
        array = velmar.int8([[1, 2], [3, 4]])
        first = str(array)
        assert str(array[0]) == "[1,2]"
        assert str(array) == first


class TestBlanks:
    @rows("make, text, constructor", FORMS + VIEWS)
    def test_only_the_mark_of_a_complex_array_has_one(self, make, text, constructor):
        assert " " not in str(make())
        end = ", is_complex=True)"
        got = repr(make())
        assert got.count(" ") == (1 if got.endswith(end) else 0)
        assert " " not in got.removesuffix(end)

    @each(CLASS_ROWS)
    def test_real_data_never_mentions_the_mark(self, row):
        array = row.cls([[1, 0], [0, 1]])
        for view in (array, array[0], array[:0], row.cls(), row.cls(size=(2, 0))):
            assert "is_complex" not in repr(view)

    @each(COMPLEX_ROWS)
    def test_str_never_mentions_the_mark(self, row):
        assert "is_complex" not in str(row.cls([1], is_complex=True))


class TestReadingBack:
    """repr() of a whole array is a call that makes an equal array."""

    @each_form
    def test_every_class(self, row, is_complex):
        array = row.cls([[[1, 0, 1], [0, 1, 1]]] * 2, is_complex=is_complex)
        copy = eval(repr(array), NAMES)
        assert type(copy) is row.cls
        assert exact(contents(copy)) == exact(contents(array))
        assert repr(copy) == repr(array)

    @each(CLASS_ROWS)
    def test_limits(self, row):
        array = row.cls([[row.low], [row.high]])
        assert exact(contents(eval(repr(array), NAMES))) == exact([[row.low], [row.high]])

    def test_special_floats(self):
        array = velmar.double([[math.nan, math.inf, -math.inf, -0.0, 5e-324]])
        assert exact(contents(eval(repr(array), NAMES))) == exact(contents(array))

    @rows(
        "make",
        [
            ("nothing", lambda: velmar.double()),
            ("one_empty_row", lambda: velmar.int8([[]])),
            ("empty_rows", lambda: velmar.uint64(size=(3, 0))),
            ("complex_nothing", lambda: velmar.int8(is_complex=True)),
            ("uint64_largest", lambda: velmar.uint64([[2**64 - 1]])),
            ("single", lambda: velmar.single([[0.1, 1e-40], [3.4e38, 1 / 3]])),
            ("four_dimensions", lambda: velmar.double(grid(2, 3, 2, 2))),
        ],
    )
    def test_rows(self, make):
        array = make()
        copy = eval(repr(array), NAMES)
        assert type(copy) is type(array)
        assert repr(copy) == repr(array)
        assert exact(contents(copy)) == exact(contents(array))

    def test_one_dimension_reads_back_as_a_row(self):
        assert repr(eval(repr(line(3)), NAMES)) == "velmar.double([[0.0,1.0,2.0]])"

    def test_columns_without_rows_are_lost(self):
        assert len(velmar.double(size=(3, 0))) == 3
        copy = eval(repr(velmar.double(size=(0, 3))), NAMES)
        assert repr(copy) == "velmar.double([])"


FAR_TOO_MANY = 100_000
MODERATELY_MANY = 200
TEXTS = pytest.mark.parametrize("text", [str, repr])


class TestManyDimensions:
    @TEXTS
    def test_beyond_the_recursion_limit(self, text):
        array = velmar.double(size=(1,) * FAR_TOO_MANY + (2,))
        with pytest.raises(RecursionError) as caught:
            text(array)
        assert caught.type is RecursionError
        assert str(caught.value).startswith("maximum recursion depth exceeded")
        assert text(velmar.int8([1])) in ("[[1]]", "velmar.int8([[1]])")

    @TEXTS
    def test_views_beyond_the_recursion_limit(self, text):
        array = velmar.double(size=(1,) * FAR_TOO_MANY + (2,))
        for view in (array[0], array[0][0]):
            with pytest.raises(RecursionError):
                text(view)
        assert "[]" in text(array[:0])

    @TEXTS
    def test_slices_beyond_the_recursion_limit(self, text):
        # The loop over a final slice replaces any deeper error by its own.
        array = velmar.double(size=(1,) * FAR_TOO_MANY + (2,))
        for view in (array[:], array[0][::-1]):
            with raises(RuntimeError, "unable to set list item."):
                text(view)

    def test_repeated_recursion_errors(self):
        array = velmar.logical(size=(1,) * FAR_TOO_MANY + (2,))
        for _ in range(5):
            with pytest.raises(RecursionError):
                str(array)
        assert str(velmar.logical([1])) == "[[True]]"

    def test_two_wide_beyond_the_recursion_limit(self):
        array = velmar.int8(size=(2, 2) + (1,) * FAR_TOO_MANY + (2,))
        with pytest.raises(RecursionError):
            repr(array)

    def test_within_the_recursion_limit(self):
        array = velmar.double(size=(1,) * MODERATELY_MANY + (2,))
        brackets = MODERATELY_MANY + 1
        assert str(array) == "[" * brackets + "0.0,0.0" + "]" * brackets
        assert str(array[:]) == str(array)
        assert str(array[0]) == "[" * (brackets - 1) + "0.0,0.0" + "]" * (brackets - 1)
