"""The extension for IPython: `%load_ext velmar` shows arrays as tables."""

import pytest
import velmar
from helpers.arrays import CLASS_ROWS
from helpers.cases import each, needs
from helpers.view_states import expired_row

MATRIX = velmar.double([[1, 2.5], [3, 4]])
GONE = "locked shared pointer is null."


class Formatter:
    """The part of a formatter of IPython that extensions use."""

    def __init__(self):
        self.type_printers = {}

    def for_type(self, cls, function):
        self.type_printers[cls] = function

    def pop(self, cls):
        return self.type_printers.pop(cls)


class Printer:
    def __init__(self, depth):
        self.stack, self.parts = [None] * depth, []

    def text(self, text):
        self.parts.append(text)


class Shell:
    def __init__(self):
        self.display_formatter = self
        self.formatters = {"text/html": Formatter(), "text/plain": Formatter()}

    def html(self, a):
        return self.formatters["text/html"].type_printers[type(a)](a)

    def text(self, a, depth=1):
        printer = Printer(depth)
        self.formatters["text/plain"].type_printers[type(a)](a, printer, False)
        return "".join(printer.parts)


@pytest.fixture
def shell():
    shell = Shell()
    velmar.load_ipython_extension(shell)
    return shell


class TestExtension:
    @each(CLASS_ROWS)
    def test_every_class(self, shell, row):
        a = row.cls([[1, 0], [0, 1]])
        assert shell.html(a) == velmar.html(a)
        assert shell.text(a) == velmar.summary(a)

    def test_html_is_plain_text(self, shell):
        assert type(shell.html(MATRIX)) is str

    def test_in_a_list_only_the_shape(self, shell):
        assert shell.text(MATRIX, depth=2) == "<velmar.double, 2 by 2>"
        assert shell.text(MATRIX[0], depth=3) == "<velmar.double, a row of 2>"

    def test_large_arrays_are_short(self, shell):
        a = velmar.double(size=(300, 300))
        assert len(repr(a)) > 360_000
        assert len(shell.text(a)) < 1000
        assert len(shell.html(a)) < 3000

    def test_view_without_an_array(self, shell):
        assert shell.html(expired_row()) is None
        assert shell.text(expired_row()) == f"velmar.double: {GONE}"
        assert shell.text(expired_row(), depth=2) == f"<velmar.double: {GONE}>"

    def test_unload(self, shell):
        velmar.load_ipython_extension(shell)
        velmar.unload_ipython_extension(shell)
        assert [formatter.type_printers for formatter in shell.formatters.values()] == [{}, {}]
        velmar.unload_ipython_extension(shell)

    def test_unload_keeps_what_others_have_set(self, shell):
        shell.formatters["text/html"].for_type(velmar.double, str)
        velmar.unload_ipython_extension(shell)
        assert shell.formatters["text/html"].type_printers == {velmar.double: str}

    def test_repr_does_not_change(self, shell):
        assert repr(MATRIX) == "velmar.double([[1.0,2.5],[3.0,4.0]])"


@needs("IPython")
class TestIPython:
    @pytest.fixture
    def ipython(self, tmp_path, monkeypatch):
        monkeypatch.setenv("IPYTHONDIR", str(tmp_path))
        from IPython.core.interactiveshell import InteractiveShell

        InteractiveShell.clear_instance()
        shell = InteractiveShell.instance()
        shell.display_formatter.active_types = ["text/plain", "text/html"]
        yield shell
        InteractiveShell.clear_instance()

    def shown(self, ipython, value):
        return ipython.display_formatter.format(value)[0]

    def test_load_and_unload(self, ipython):
        before = self.shown(ipython, MATRIX)
        assert before == {"text/plain": "velmar.double([[1.0,2.5],[3.0,4.0]])"}
        ipython.run_line_magic("load_ext", "velmar")
        assert self.shown(ipython, MATRIX) == {
            "text/plain": velmar.summary(MATRIX),
            "text/html": velmar.html(MATRIX),
        }
        assert self.shown(ipython, [MATRIX, {"row": MATRIX[0]}]) == {
            "text/plain": "[<velmar.double, 2 by 2>, {'row': <velmar.double, a row of 2>}]"
        }
        assert self.shown(ipython, expired_row()) == {"text/plain": f"velmar.double: {GONE}"}
        ipython.run_line_magic("reload_ext", "velmar")
        assert self.shown(ipython, MATRIX)["text/html"] == velmar.html(MATRIX)
        ipython.run_line_magic("unload_ext", "velmar")
        assert self.shown(ipython, MATRIX) == before

    def test_last_line_of_a_cell(self, ipython, capsys):
        ipython.run_cell("%load_ext velmar\nimport velmar\nvelmar.double(size=(300, 300))")
        printed = capsys.readouterr().out
        assert "velmar.double, 300 by 300" in printed
        assert len(printed) < 3000
