"""Self-test of script/mutate: expected places in a sample, and faults with known outcomes."""

from mutation_places import Change, places

SAMPLE = """// A comment: a < b, 1 and "text".
#include <vector>
#define ONE(x) (x + 1)
static_assert(sizeof(int) == 4);
int declared(int first = 7, std::vector<int> more = {});
template <int N = 3>
struct Plain {
  bool operator<(const Plain& other) const;
  int m_size = 5;
};
constexpr const char* word = "cat";
Plain::Plain(int size) : m_size(size * 2) {}
bool decide(int a, int b, std::vector<std::vector<int>>&& rest) {
  if (a <= b && !rest.empty()) return false;  // not here: a > b
  if (int* found = look(a)) return found->size - b;
  while (b != 0x10) --b;
  /* nor here: 1 + 1 */
  return declared(-1) == 'a';
}
"""
EXPECTED = {
    9: [("5", "6"), ("5", "4")],
    11: [("a", "x")],
    12: [("*", "/"), ("2", "3"), ("2", "1")],
    14: [
        ("a <= b && !rest.empty()", "false"),
        ("a <= b && !rest.empty()", "true"),
        ("<=", "<"),
        ("<=", ">"),
        ("&&", "||"),
        ("!", ""),
        ("false", "true"),
    ],
    15: [("-", "+")],
    16: [("b != 0x10", "false"), ("!=", "=="), ("--", "++")],
    18: [("1", "2"), ("1", "0"), ("==", "!=")],
}

# File, text that occurs there once, its replacement, expected outcome. Every test that takes the
# length of an array runs this code. One replacement changes nothing and has to survive.
LENGTH = "src/indexing/view_composition.cpp"
ACTIVE = "const std::size_t active = view.chain().integers().size();"
KNOWN = [
    (LENGTH, "return storage->shape()[active];", "return storage->shape()[active] + 1;", "killed"),
    (LENGTH, ACTIVE, "__builtin_trap(); " + ACTIVE, "killed by crash"),
    (LENGTH, ACTIVE, "while (true) {} " + ACTIVE, "killed by hang"),
    (LENGTH, ACTIVE, "auto active = ;", "uncompiled"),
    (LENGTH, ACTIVE, ACTIVE.replace("active = ", "active = 0 + "), "survived"),
    (
        "src/module/support.hpp",
        '"slice step cannot be zero."',
        '"slice step can be zero."',
        "killed",
    ),
]
QUIET = 20  # seconds without output that count as a hang here


def check_places():
    found = {}
    for place in places("sample.cpp", SAMPLE):
        for change in place:
            number = change.lines(SAMPLE)[0]
            found.setdefault(number, []).append((SAMPLE[change.start : change.end], change.new))
    good = True
    for number in sorted(set(found) | set(EXPECTED)):
        if sorted(found.get(number, [])) != sorted(EXPECTED.get(number, [])):
            print(f"line {number} of the sample: found {found.get(number)}")
            good = False
    print(f"places of the sample: {'as expected' if good else 'WRONG'}")
    return good


def plant_known_faults(workshop):
    workshop.times["quiet"] = min(QUIET, workshop.times["quiet"])
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
