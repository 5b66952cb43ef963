"""Self-test of script/mutate: plants faults with known outcomes."""

from places import Change

# File, text that occurs there once, its replacement, expected outcome. Every test that takes the
# length of an array runs this code. One replacement changes nothing and has to survive.
LENGTH = "src/indexing/view_composition.cpp"
SUPPORT = "src/module/support.hpp"
ACTIVE = "const std::size_t active = view.chain().integers().size();"
KNOWN = [
    (LENGTH, "return storage->shape()[active];", "return storage->shape()[active] + 1;", "killed"),
    (LENGTH, ACTIVE, "__builtin_trap(); " + ACTIVE, "killed by crash"),
    (LENGTH, ACTIVE, "while (true) {} " + ACTIVE, "killed by hang"),
    (LENGTH, ACTIVE, "auto active = ;", "uncompiled"),
    (LENGTH, ACTIVE, ACTIVE.replace("active = ", "active = 0 + "), "survived"),
    (SUPPORT, "slice step cannot be zero.", "slice step can be zero.", "killed"),
]
LONGEST_TEST = 20  # seconds; a longer one counts as a hang here


def plant_known_faults(workshop):
    workshop.times["test"] = min(LONGEST_TEST, workshop.times["test"])
    good = True
    for file, old, new, expected in KNOWN:
        text = (workshop.tree / file).read_text()
        if text.count(old) != 1:
            print(f"{file} does not contain this text exactly once: {old}")
            return False
        start = text.index(old)
        verdict = workshop.judge(Change(file, start, start + len(old), new))
        seen = f"{verdict.outcome} by {verdict.by}" if verdict.by else verdict.outcome
        fits = seen.startswith(expected)
        good = good and fits
        print(f"{'as expected' if fits else 'WRONG'}: {new}: {seen} {verdict.where}", flush=True)
    return good
