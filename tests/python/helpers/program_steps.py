"""The steps of random programs: a table of operations, each written as a line of Python."""

from __future__ import annotations

import math
from collections.abc import Callable

from helpers.arrays import FORMS
from helpers.program_buffers import Exported
from helpers.program_model import Array
from helpers.program_text import NAMES, Target, Writer, answer, shape_of, walked


def construct(w: Writer) -> str:
    row, is_complex = w.rng.choice(FORMS)
    shape = w.shape()
    size = tuple(w.rng.choice([*[shape] * 6, w.rng.sample(shape, len(shape)), w.shape()]))
    flat = w.nested([math.prod(shape)], row, is_complex)
    deep = w.nested(shape, row, is_complex)
    arguments = w.rng.choice(
        [
            *[deep] * 12,
            *[
                w.part(),
                f"{deep}, {size}",
                f"{flat}, size={size}",
                f"size={size}",
                w.number(row, is_complex),
            ],
            *[f"vector={flat}", f"vector={flat}, size={size}", f"vector={deep}", f"{size}"],
            *[f"{flat}, None, {flat}", f"{flat}, vector={flat}", f"vector={w.part()}", ""],
            f"size={w.rng.choice(['()', '(-1, 2)', '(True, 2)', '(2.0, 2)', '5', 'None'])}",
        ]
    )
    if is_complex:
        options = f"is_complex={'True' if w.often(99) else '1'}"
        arguments = f"{arguments}, {options}" if arguments else options
    elif row.word == "logical" and w.often(3):
        arguments = "is_complex=True"
    return f"{w.target(of_views=False)} = velmar.{row.word}({arguments})"


def subscript(w: Writer) -> str:
    text, value = w.subscripted(*w.array(), 3)
    return f"{w.target()} = {text}" if isinstance(value, Array) or w.often(10) else text


def write_item(w: Writer) -> str:
    target = w.target_of_write(w.index)
    return f"{target.left} = {w.data(target.shape, target.array)}"


def write_slice(w: Writer) -> str:
    target = w.target_of_write(w.slice)
    shape = target.shape
    if shape and w.often(40):
        shape = [math.prod(shape)]  # a slice of an earlier dimension accepts any nesting
    if w.often(60):
        shape = walked(target) or shape
    return f"{target.left} = {w.data(shape, target.array)}"


def write_beyond(w: Writer) -> str:
    """A write to a slice of a slice, which may reach beyond the outer slice."""
    found = [(text, array, shape_of(array)) for text, array in w.found(Array)]
    fit = [one for one in found if one[2] and len(one[2]) > 1 and one[2][0] > 1]
    if not fit:
        return construct(w)
    text, array, shape = w.rng.choice(fit)
    outer = w.rng.choice(["1:", "2:", "-1:", "::2", "1::2", "::-1", "1:1", w.slice(shape[0])])
    first = w.rng.randrange(1, shape[0])
    inner = w.rng.choice([f"{first}:", f"{first}::-1", w.slice(shape[0])])
    viewed = answer(array, outer)
    target = Target(f"{text}[{outer}]", viewed if isinstance(viewed, Array) else array, inner)
    return f"{target.left} = {w.data(walked(target), target.array)}"


def write_part(w: Writer) -> str:
    """An assignment from an array, sometimes between overlapping parts of one array."""
    target = w.target_of_write(w.subscript)
    arrays = [(target.text, target.array), w.array(), w.array()]
    for _ in range(12):
        text, value = w.subscripted(*w.rng.choice(arrays), 2)
        if target.shape and shape_of(value) == target.shape:
            return f"{target.left} = {text}"
    return f"{target.left} = {w.part()}"


def swap(w: Writer) -> str:
    text, array = w.array()
    shape = shape_of(array)
    choose = w.index if w.often(80) else w.slice
    first, second = (f"{text}[{choose(shape[0] if shape else 2)}]" for _ in range(2))
    return f"{first}, {second} = {second}, {first}"


def delete_item(w: Writer) -> str:
    return f"del {w.target_of_write(w.subscript).left}"


def clone(w: Writer) -> str:
    text = w.array()[0] if w.often(70) else w.part()
    return f"{w.target(of_views=False)} = {text}.clone()"


def restore(w: Writer) -> str:
    text = w.array()[0] if w.often(70) else w.part()
    protocol = w.rng.randint(0, 5)
    form = w.rng.choice(
        [f"pickle.loads(pickle.dumps({text}, {protocol}))", f"copy.copy({text})"]
        + [f"copy.deepcopy({text})"]
    )
    return f"{w.target(of_views=False)} = {form}"


def reduce(w: Writer) -> str:
    return f"{w.part()}.__reduce__()"


def compare(w: Writer) -> str:
    left = w.part()
    right = w.rng.choice(
        [w.part(), w.part(), left, f"{left}.clone()", f"{left}[:]", f"{left}[::-1]", "5", "[1]"]
    )
    if w.often(15):
        left, right = right, left
    return f"{left} {w.rng.choice(['=='] * 6 + ['!='] * 4 + ['<', '<=', '>', '>='])} {right}"


def contain(w: Writer) -> str:
    text, array = w.array()
    return f"{w.rng.choice([w.number(array.row, False), w.part()])} in {text}"


def begin(w: Writer) -> str:
    text = w.part()
    return f"{w.target()} = iter({text}.clone())" if w.often(8) else f"{w.target()} = iter({text})"


def advance(w: Writer) -> str:
    text = w.iterator()
    form = w.rng.choice(
        [f"{w.target()} = next({text})"] * 5
        + [f"next({text}, None)", f"{w.target()} = list({text})", f"iter({text}) is {text}"]
    )
    return form


def walk(w: Writer) -> str:
    text, array = w.array()
    name = w.target()
    return w.rng.choice(
        [
            f"{name} = list({text})",
            f"{name} = list({w.part()})",
            f"{name} = list(reversed({text}))",
            f"[list(row) for row in {text}]",
            f"for {name} in {text}: {name}[0] = {w.number(array.row, False)}",
            f"{name} = [row for row in {text}.clone()]",
            f"[len(row) for row in {text}.clone()]",
            f"{name} = next(iter({text}))",
            f"{name} = list({text}.clone())",
        ]
    )


def look(w: Writer) -> str:
    text = w.part()
    return w.rng.choice([f"{word}({text})" for word in ("len", "bool", "str", "repr", "format")])


def reshape(w: Writer) -> str:
    whole = [(text, one) for text, one in w.found(Array) if not one._integers]
    if not whole or w.often(6):
        return f"{w.part()}.reshape(2, 3)"
    text, array = w.rng.choice(whole)
    if w.often(15):
        text = f"{text}[{w.slice(len(array) if shape_of(array) else 2)}]"
    count = len(array._storage().elements)
    shape = w.factors(count)
    if w.often(10):
        shape += [1] * w.rng.randint(1, 2)
    if w.often(10):
        odd = w.rng.choice(["True", "2.0", "-1", "'2'", "None", "2**63", "0", "[2]", "7"])
        shape[w.rng.randrange(len(shape))] = odd
    if count and w.often(2):
        shape.append("2**62")
    arguments = ", ".join(map(str, shape))
    if len(shape) == 1 or w.often(30):
        arguments = f"[{arguments}]" if w.often(80) else arguments
    if w.often(3):
        arguments = w.rng.choice(["", f"{arguments}, order='F'", "b'\\x02\\x03'", w.part()])
    line = f"{text}.reshape({arguments})"
    return f"{w.target()} = {line}" if w.often(15) else line


def measure(w: Writer) -> str:
    words = ["size", "size", "_size", "itemsize", "_is_complex"]
    words += ["get_bytewise_strides()", "buffer_info()[1]"]
    return f"{w.part()}.{w.rng.choice(words)}"


def extract(w: Writer) -> str:
    text, array = w.array()
    words = (
        ["real()", "imag()", "_real", "_imag"] if array._is_complex else ["noncomplex()", "_data"]
    )
    if w.often(8):
        words = ["real()", "_imag", "noncomplex()", "_data"]
    if w.often(30):
        text = w.subscripted(text, array, 2)[0]
    return f"{w.target(of_views=False)} = {text}.{w.rng.choice(words)}"


def export(w: Writer) -> str:
    held = w.memory()
    if held and w.often(25):
        return f"{held}.tolist()"
    text = w.part()
    if w.often(30):
        lines = [
            found for found, one in w.found(Array) if shape_of(one) and len(shape_of(one)) == 1
        ]
        text = w.rng.choice(lines or [text])
        return f"{w.target()} = {text}.toarray()"
    form = w.rng.choice([f"memoryview({text})", f"{text}.tomemoryview()"])
    return f"{w.target()} = {form}" if w.often(70) else f"{form}.tolist()"


def ingest(w: Writer) -> str:
    row, is_complex = w.rng.choice(FORMS)
    source = w.buffer(row)
    found = [one for one in w.found(Exported) if one[1].owner.row is row]
    text, array = w.array()
    if found and w.often(40):
        source, memory = w.rng.choice(found)
        is_complex = memory.format.startswith("Z")
    elif w.often(40) or is_complex:
        row, is_complex = array.row, array._is_complex
        source = f"memoryview({w.subscripted(text, array, 2)[0]})"
    elif w.often(5):
        source = w.memory() or source
    arguments = source
    if w.often(15):
        shape = tuple(w.shape())
        arguments = f"{source}, {shape}"
    if is_complex or (w.often(3) and row.has_complex):
        arguments += ", is_complex=True"
    return f"{w.target(of_views=False)} = velmar.{row.word}({arguments})"


def drop(w: Writer) -> str:
    held = [name for name in NAMES if name in w.names]
    return f"del {w.rng.choice(held)}" if held else construct(w)


def alias(w: Writer) -> str:
    return f"{w.target()} = {w.array()[0]}"


STEPS: list[tuple[int, Callable[[Writer], str]]] = [  # weight and function
    (12, construct),
    (16, subscript),
    (12, write_item),
    (10, write_slice),
    (2, write_beyond),
    (8, write_part),
    (2, swap),
    (2, delete_item),
    (8, clone),
    (4, restore),
    (2, reduce),
    (8, compare),
    (2, contain),
    (5, begin),
    (6, advance),
    (5, walk),
    (3, look),
    (5, reshape),
    (3, measure),
    (4, extract),
    (5, export),
    (7, ingest),
    (3, drop),
    (1, alias),
]


def next_step(writer: Writer) -> tuple[Callable[[Writer], str], str]:
    """The function that wrote the next line, and the line."""
    weights, makers = zip(*STEPS, strict=True)
    maker = writer.rng.choices(makers, weights)[0]
    if not set(NAMES) & set(writer.names):
        maker = construct
    return maker, maker(writer)
