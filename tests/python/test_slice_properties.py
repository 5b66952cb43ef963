"""Random chains of subscripts of any size, against the model and against ranges."""

import pytest
import velmar
from helpers.arrays import contents, grid, line, subscripted
from helpers.nesting_model import normalized
from helpers.slice_model import ViewModel, text_of
from hypothesis import given, settings
from hypothesis import strategies as st

HUGE = [
    2**31,
    2**32,
    2**40,
    2**62,
    2**62 + 1,
    2**63 - 2,
    2**63 - 1,
    2**63,
    2**64,
    2**64 + 1,
    2**70,
]

small = st.integers(-12, 12)
large = st.sampled_from(HUGE + [-number for number in HUGE] + [-(2**63) - 1])
number = st.one_of(small, small, large)
bound = st.one_of(st.none(), number)
step = st.one_of(st.none(), number.filter(bool))
any_slice = st.builds(slice, bound, bound, step)
mild_slice = st.builds(
    slice,
    st.one_of(st.none(), small),
    st.one_of(st.none(), small),
    st.sampled_from([None, 1, 2, 3, -1, -2, -3]),
)

thorough = settings(max_examples=4 * settings.default.max_examples)


@pytest.fixture(scope="module")
def lines():
    return [line(count) for count in range(13)]


class TestChainsOfSlices:
    @thorough
    @given(st.integers(0, 12), st.lists(any_slice, min_size=1, max_size=6))
    def test_positions_are_those_of_ranges(self, lines, count, chain):
        view = subscripted(lines[count], chain)
        want = [float(position) for position in subscripted(range(count), chain)]
        assert len(view) == len(want)
        assert contents(view) == want
        assert str(view) == text_of(want)

    @thorough
    @given(st.integers(0, 12), st.lists(mild_slice, min_size=1, max_size=8))
    def test_model_agrees(self, lines, count, chain):
        view = subscripted(lines[count], chain)
        model = subscripted(ViewModel([float(i) for i in range(count)]), chain)
        assert len(view) == len(model)
        assert contents(view) == model.contents()
        assert str(view) == text_of(model.contents())

    @thorough
    @given(st.integers(0, 12), st.lists(any_slice, max_size=4))
    def test_reversing_twice_changes_nothing(self, lines, count, chain):
        view = subscripted(lines[count], chain)
        assert repr(view[::-1][::-1]) == repr(view)
        assert repr(view[:]) == repr(view)
        assert contents(view[::-1]) == contents(view)[::-1]

    @thorough
    @given(st.integers(1, 12), st.lists(any_slice, max_size=4), st.integers(-14, 14))
    def test_integer_at_the_end(self, lines, count, chain, index):
        view = subscripted(lines[count], chain)
        want = subscripted(range(count), chain)
        if -len(want) <= index < len(want):
            assert view[index] == want[index]
        else:
            with pytest.raises(IndexError) as caught:
                view[index]
            assert str(caught.value) == f"index has an invalid value: {index}"

    @thorough
    @given(
        st.integers(0, 12),
        st.lists(any_slice, max_size=3),
        st.sampled_from([0, False]),
        bound,
        bound,
    )
    def test_step_zero_at_any_depth(self, lines, count, chain, zero, start, stop):
        view = subscripted(lines[count], chain)
        with pytest.raises(ValueError) as caught:
            view[start:stop:zero]
        assert str(caught.value) == "slice step cannot be zero."

    @pytest.mark.parametrize("first", HUGE)
    @pytest.mark.parametrize("second", HUGE)
    def test_products_of_huge_steps(self, lines, first, second):
        for signs in ((1, 1), (1, -1), (-1, 1), (-1, -1)):
            steps = [signs[0] * first, signs[1] * second]
            view = lines[10][:: steps[0]][:: steps[1]]
            want = [0.0] if signs[0] > 0 else [9.0]
            assert len(view) == 1
            assert contents(view) == want
            assert str(view) == text_of(want)
            assert contents(view[:: steps[0]][::-1]) == want
            assert contents(view[1:]) == []

    @thorough
    @given(st.sampled_from([2**40, 2**62, 2**63 - 1]), st.lists(any_slice, min_size=1, max_size=4))
    def test_long_dimensions_without_elements(self, count, chain):
        view = subscripted(velmar.int8(size=(count, 0)), chain)
        want = subscripted(range(count), chain)
        assert len(view) == len(want)
        if len(want) <= 20:
            assert str(view) == text_of([[] for _ in want])


any_shape = st.lists(st.integers(1, 4), min_size=2, max_size=4).map(normalized)


@st.composite
def shapes_and_chains(draw):
    """A shape, and a chain that stays inside it: some slices, an integer, some slices, ..."""
    shape = draw(any_shape)
    chain = []
    model = ViewModel(grid(*shape))
    for _ in range(draw(st.integers(0, len(shape)))):
        for subscript in draw(st.lists(mild_slice, max_size=3)):
            chain.append(subscript)
            model = model[subscript]
        if len(model) == 0:
            break
        chain.append(draw(st.integers(-len(model), len(model) - 1)))
        model = model[chain[-1]]
    return shape, chain


class TestChainsOfAnything:
    @thorough
    @given(shapes_and_chains())
    def test_model_agrees(self, shape_and_chain):
        shape, chain = shape_and_chain
        got = subscripted(velmar.double(grid(*shape)), chain)
        want = subscripted(ViewModel(grid(*shape)), chain)
        if isinstance(want, ViewModel):
            assert type(got) is velmar.double
            assert len(got) == len(want)
            assert contents(got) == want.contents()
            assert str(got) == text_of(want.contents())
        else:
            assert type(got) is float
            assert got == want

    @thorough
    @given(any_shape, st.data())
    def test_every_element_is_where_the_nesting_says(self, shape, data):
        indices = [data.draw(st.integers(0, length - 1)) for length in shape]
        position = 0
        for length, index in zip(shape, indices, strict=True):
            position = position * length + index
        assert subscripted(velmar.double(grid(*shape)), indices) == float(position)
