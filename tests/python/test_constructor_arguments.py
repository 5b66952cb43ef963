"""The constructor's four arguments: defaults, positions, keywords, the leading dict, conflicts."""

from __future__ import annotations

import collections
import types

import pytest
import velmar
from helpers.arrays import CLASS_ROWS, COMPLEX_ROWS, contents, exact
from helpers.cases import each, each_form
from helpers.failures import THREE_POSITIONS, TWO_SOURCES, WRONG_TYPE, raises

MUST_BE_BOOL = "value passed to 'is_complex' must be a bool."
NEVER_COMPLEX = "logical arrays must not be complex."


def call(cls, args, kwargs):
    """Call the constructor, without keywords if there are none."""
    return cls(*args, **kwargs) if kwargs else cls(*args)


class Name(str):
    """A str that is not an exact one."""


# Equal to the name, but not the object that the interpreter makes of the name in source code.
OTHER_SIZE = "".join(("si", "ze"))


def zero_of(row, is_complex):
    return {"float": 0.0, "logical": False}.get(row.kind, 0) if not is_complex else 0j


class TestEmpty:
    CALLS = {
        "nothing": ((), {}),
        "one None": ((None,), {}),
        "three None": ((None, None, None), {}),
        "size None": ((), {"size": None}),
        "vector None": ((), {"vector": None}),
        "initializer None": ((), {"initializer": None}),
        "all None by keyword": ((), {"initializer": None, "size": None, "vector": None}),
        "empty dict": (({},), {}),
        "dict of None": (({"size": None, "vector": None},), {}),
        "dict, then None": (({}, None), {}),
        "not complex": ((), {"is_complex": False}),
        "not complex by position": ((None, None, None, False), {}),
    }

    @each(CLASS_ROWS)
    @pytest.mark.parametrize("args, kwargs", CALLS.values(), ids=CALLS.keys())
    def test_is_zero_by_zero(self, row, args, kwargs):
        array = call(row.cls, args, kwargs)
        assert type(array) is row.cls
        assert len(array) == 0
        assert repr(array) == f"velmar.{row.word}([])"

    @each(COMPLEX_ROWS)
    def test_complex(self, row):
        array = row.cls(is_complex=True)
        assert type(array) is row.cls
        assert repr(array) == f"velmar.{row.word}([], is_complex=True)"


class TestForms:
    """Every accepted way to pass the arguments."""

    ROWS = {
        "initializer by position": (([1, 2],), {}, [[1, 2]]),
        "initializer by keyword": ((), {"initializer": [1, 2]}, [[1, 2]]),
        "size by position": ((None, (2, 3)), {}, [[0, 0, 0], [0, 0, 0]]),
        "size by keyword": ((), {"size": (2, 3)}, [[0, 0, 0], [0, 0, 0]]),
        "size by keyword after None": ((None,), {"size": (1, 2)}, [[0, 0]]),
        "initializer and size by position": (([1, 2, 3, 4], (2, 2)), {}, [[1, 3], [2, 4]]),
        "initializer and size by keyword": (
            (),
            {"size": (2, 2), "initializer": [1, 2, 3, 4]},
            [[1, 3], [2, 4]],
        ),
        "initializer and size None": (([[1, 2]],), {"size": None}, [[1, 2]]),
        "initializer and vector None": (([[1, 2]],), {"vector": None}, [[1, 2]]),
        "initializer, vector None by position": (([[1, 2]], None, None), {}, [[1, 2]]),
        "vector by keyword": ((), {"vector": [1, 2]}, [[1, 2]]),
        "vector by position": ((None, None, [1, 2]), {}, [[1, 2]]),
        "vector and size by position": ((None, (2, 1), [1, 2]), {}, [[1], [2]]),
        "vector and size by keyword": ((), {"vector": [1, 2], "size": (2, 1)}, [[1], [2]]),
        "vector and is_complex by position": ((None, None, [1, 2], False), {}, [[1, 2]]),
        "falsy initializer 0": ((0,), {}, [[0]]),
        "falsy initializer False": ((False,), {}, [[0]]),
        "falsy initializer []": (([],), {}, []),
        "falsy vector []": ((), {"vector": []}, [[]]),
    }

    @pytest.mark.parametrize("args, kwargs, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, args, kwargs, expected):
        assert exact(contents(call(velmar.int8, args, kwargs))) == exact(expected)

    @each_form
    def test_size_alone_fills_with_zeros(self, row, is_complex):
        array = row.cls(size=(2, 3), is_complex=is_complex)
        zero = zero_of(row, is_complex)
        assert type(array) is row.cls
        assert exact(contents(array)) == exact([[zero] * 3] * 2)

    def test_new_called_on_the_class(self):
        made = velmar.double.__new__(velmar.double, [1, 2])
        assert repr(made) == "velmar.double([[1.0,2.0]])"
        assert repr(velmar.double.__new__(velmar.double)) == "velmar.double([])"


class TestLeadingDict:
    """A dict as first argument replaces the keywords, unless there are keywords."""

    ROWS = {
        "size": (({"size": (2, 2)},), [[0, 0], [0, 0]]),
        "vector": (({"vector": [1, 2]},), [[1, 2]]),
        "initializer": (({"initializer": [[1], [2]]},), [[1], [2]]),
        "rest stays positional": (({}, [[1, 2]]), [[1, 2]]),
        "rest stays positional, two": (({}, [1, 2], (2, 1)), [[1], [2]]),
        "rest stays positional, three": (({}, None, None, [1, 2]), [[1, 2]]),
        "rest stays positional, four": (({}, None, None, [1, 2], False), [[1, 2]]),
        "size and positional data": (({"size": (2, 1)}, [1, 2]), [[1], [2]]),
        "ordered dict": ((collections.OrderedDict(size=(1, 1)),), [[0]]),
        "default dict": ((collections.defaultdict(list, size=(1, 1)),), [[0]]),
        "name that is another str": (({OTHER_SIZE: (1, 2)},), [[0, 0]]),
        "name of a subclass of str": (({Name("size"): (1, 2)},), [[0, 0]]),
        "names in another order": (({"is_complex": False, "size": (1, 2)}, [3, 4]), [[3, 4]]),
        "not complex": (({"is_complex": False}, [1]), [[1]]),
        "complex": (({"is_complex": True}, [[1, 2]]), [[1 + 0j, 2 + 0j]]),
    }

    @pytest.mark.parametrize("args, expected", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, args, expected):
        assert exact(contents(velmar.int8(*args))) == exact(expected)

    def test_the_dict_is_left_as_it_was(self):
        keywords = {"size": (2, 2), "is_complex": True}
        velmar.double(keywords)
        velmar.double(keywords, [1, 2, 3, 4])
        assert keywords == {"size": (2, 2), "is_complex": True}

    def test_new_called_on_the_class(self):
        assert contents(velmar.int8.__new__(velmar.int8, {"size": (1, 2)})) == [[0, 0]]

    NOT_TAKEN = {
        "keywords": (({"size": (2, 2)},), {"size": (1, 1)}),
        "keyword that says nothing": (({"size": (2, 2)},), {"is_complex": False}),
        "empty dict and keywords": (({},), {"size": (1, 1)}),
        "by keyword": ((), {"initializer": {"size": (2, 2)}}),
        "second dict": (({}, {"size": (2, 2)}), {}),
        "mapping proxy": ((types.MappingProxyType({"size": (2, 2)}),), {}),
    }

    @pytest.mark.parametrize("args, kwargs", NOT_TAKEN.values(), ids=NOT_TAKEN.keys())
    def test_otherwise_it_is_the_initializer(self, args, kwargs):
        with raises(*WRONG_TYPE):
            call(velmar.double, args, kwargs)

    def test_an_empty_set_of_keywords_is_one_all_the_same(self):
        with raises(*WRONG_TYPE):
            velmar.double({"size": (2, 2)}, **{})

    def test_otherwise_it_is_the_initializer_of_a_complex_array(self):
        array = velmar.int8({"size": (2, 2)}, is_complex=True)
        assert exact(contents(array)) == exact([[0j]])

    def test_errors_name_the_route_of_the_dict(self):
        with raises(*TWO_SOURCES):
            velmar.double({"vector": [2]}, 1)
        with raises(*THREE_POSITIONS):
            velmar.double({"is_complex": False}, 1, None, [2])
        with raises(TypeError, MUST_BE_BOOL):
            velmar.double({"is_complex": 1})
        with raises(TypeError, NEVER_COMPLEX):
            velmar.logical({"is_complex": True}, [True])


class TestInterpretersOwnRefusals:
    """The messages are the interpreter's: the class is tested, and that no message is ours."""

    ROWS = {
        "unknown keyword": ((), {"shape": (2, 2)}),
        "unknown name of a subclass of str": (({Name("shape"): (2, 2)},), {}),
        "size twice by another str": (([1], (1, 1)), {OTHER_SIZE: (1, 1)}),
        "unknown keyword in the dict": (({"shape": (2, 2)},), {}),
        "key that is no str in the dict": (({1: 2},), {}),
        "five arguments": ((None, None, None, False, None), {}),
        "dict and five more": (({}, None, None, None, False, None), {}),
        "initializer twice": (([1],), {"initializer": [1]}),
        "size twice": (([1], (1, 1)), {"size": (1, 1)}),
        "initializer twice by the dict": (({"initializer": [1]}, [1]), {}),
        "before a bad is_complex": ((), {"shape": 1, "is_complex": 1}),
    }

    @each(CLASS_ROWS)
    @pytest.mark.parametrize("args, kwargs", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, row, args, kwargs):
        with pytest.raises(TypeError) as caught:
            call(row.cls, args, kwargs)
        assert caught.type is TypeError
        assert str(caught.value) not in (MUST_BE_BOOL, WRONG_TYPE.message, NEVER_COMPLEX)


class TestIsComplex:
    BAD = {
        "1": 1,
        "0": 0,
        "None": None,
        "str": "True",
        "float": 1.0,
        "list": [True],
        "class": bool,
        "array": velmar.logical([True]),
    }

    @each(CLASS_ROWS)
    @pytest.mark.parametrize("value", BAD.values(), ids=BAD.keys())
    def test_must_be_exactly_a_bool(self, row, value):
        with raises(TypeError, MUST_BE_BOOL):
            row.cls(is_complex=value)
        with raises(TypeError, MUST_BE_BOOL):
            row.cls([1], is_complex=value)
        with raises(TypeError, MUST_BE_BOOL):
            row.cls(None, None, None, value)

    @each(COMPLEX_ROWS)
    def test_true_and_false(self, row):
        assert exact(contents(row.cls([1], is_complex=True))) == exact([[1 + 0j]])
        one = 1.0 if row.kind == "float" else 1
        assert exact(contents(row.cls([1], is_complex=False))) == exact([[one]])
        assert exact(contents(row.cls([1], None, None, True))) == exact([[1 + 0j]])

    LOGICAL = {
        "nothing else": ((), {"is_complex": True}),
        "by position": ((None, None, None, True), {}),
        "data": (([True],), {"is_complex": True}),
        "bad data": (("text",), {"is_complex": True}),
        "bad size": ((), {"size": 5, "is_complex": True}),
        "both": ((1,), {"vector": [1], "is_complex": True}),
    }

    @pytest.mark.parametrize("args, kwargs", LOGICAL.values(), ids=LOGICAL.keys())
    def test_logical_is_never_complex(self, args, kwargs):
        with raises(TypeError, NEVER_COMPLEX):
            call(velmar.logical, args, kwargs)

    def test_logical_not_complex(self):
        assert repr(velmar.logical(is_complex=False)) == "velmar.logical([])"
        assert repr(velmar.logical([1], is_complex=False)) == "velmar.logical([[True]])"


class TestInitializerAndVector:
    BY_KEYWORD = {
        "initializer by position": ((1,), {"vector": [2]}),
        "both by keyword": ((), {"initializer": 1, "vector": [2]}),
        "falsy both": ((0,), {"vector": []}),
        "with size": ((1, (1, 1)), {"vector": [2]}),
    }
    BY_POSITION = {
        "plain": ((1, None, [2]), {}),
        "with size": ((1, (1, 1), [2]), {}),
        "with is_complex by position": ((1, None, [2], False), {}),
        "with is_complex by keyword": ((1, None, [2]), {"is_complex": False}),
        "falsy both": (([], None, []), {}),
    }

    @each(CLASS_ROWS)
    @pytest.mark.parametrize("args, kwargs", BY_KEYWORD.values(), ids=BY_KEYWORD.keys())
    def test_vector_by_keyword(self, row, args, kwargs):
        with raises(*TWO_SOURCES):
            call(row.cls, args, kwargs)

    @each(CLASS_ROWS)
    @pytest.mark.parametrize("args, kwargs", BY_POSITION.values(), ids=BY_POSITION.keys())
    def test_vector_by_position(self, row, args, kwargs):
        with raises(*THREE_POSITIONS):
            call(row.cls, args, kwargs)


class TestOrderOfChecks:
    """Calls with several faults: the checks have a fixed order, and the first fault is reported."""

    NOT_A_SEQUENCE = "value of 'size' must be a sequence."
    ROWS = {
        "is_complex before both": (
            (1,),
            {"vector": [2], "is_complex": 1},
            (TypeError, MUST_BE_BOOL),
        ),
        "is_complex before size": ((), {"size": 5, "is_complex": 0}, (TypeError, MUST_BE_BOOL)),
        "is_complex before data": (("text",), {"is_complex": 0}, (TypeError, MUST_BE_BOOL)),
        "both before size": ((1,), {"size": 5, "vector": [2]}, TWO_SOURCES),
        "both before data": (("text", None, "text"), {}, THREE_POSITIONS),
        "size before initializer": (("text", 5), {}, (TypeError, NOT_A_SEQUENCE)),
        "size before vector": ((), {"size": 5, "vector": 5}, (TypeError, NOT_A_SEQUENCE)),
        "memory of size before data": (
            ("text", (2**62, 2)),
            {},
            (
                MemoryError,
                "unable to allocate memory for array with number of elements = "
                "9223372036854775808; type = double",
            ),
        ),
    }

    @pytest.mark.parametrize("args, kwargs, error", ROWS.values(), ids=ROWS.keys())
    def test_rows(self, args, kwargs, error):
        with raises(*error):
            call(velmar.double, args, kwargs)

    def test_logical_checks_the_bool_first(self):
        with raises(TypeError, MUST_BE_BOOL):
            velmar.logical(is_complex=1)
