"""Sequences and numbers of Python code that misbehave while they are read."""

from __future__ import annotations


class Scripted:
    """A sequence that plays a script and keeps a log of what it was asked.

    `items` maps each index to what it gives; a list of answers there is used up one a call, the
    last one staying. `lengths` are the answers of len() in the same way. An answer that is an
    exception is raised, one that is a function is called.
    """

    def __init__(self, items, lengths=None):
        self.items = [item if isinstance(item, Answers) else Answers(item) for item in items]
        self.lengths = Answers(*(lengths or [len(items)]))
        self.log = []

    def __len__(self):
        self.log.append("len")
        return self.lengths.next()

    def __getitem__(self, index):
        self.log.append(index)
        return self.items[index].next()


class Answers:
    """Answers to the same question, one after the other."""

    def __init__(self, *answers):
        self.answers = list(answers)

    def next(self):
        answer = self.answers.pop(0) if len(self.answers) > 1 else self.answers[0]
        if isinstance(answer, BaseException):
            raise answer
        return answer() if callable(answer) else answer


class Boom(Exception):
    """Raised by the sequences of these tests, and by nothing else."""


def then(action, value):
    """An answer that does something first."""

    def answer():
        action()
        return value

    return answer


class Unsized:
    """Items by number, but no length."""

    def __getitem__(self, index):
        return 1


class BadLength:
    """A length that is no valid one: the interpreter itself refuses it."""

    def __init__(self, length):
        self.length = length

    def __len__(self):
        return self.length

    def __getitem__(self, index):
        return 1


class SequenceInt(int):
    """An int that has items by number, and so is walked as a sequence."""

    def __len__(self):
        return 2

    def __getitem__(self, index):
        return index + 5


class SequenceFloat(float):
    """A float that has items by number."""

    __len__ = SequenceInt.__len__
    __getitem__ = SequenceInt.__getitem__


class ReversedList(list):
    """A list whose own __getitem__ and __len__ differ from what it stores."""

    def __len__(self):
        return super().__len__() - 1

    def __getitem__(self, index):
        return super().__getitem__(-1 - index)


class ReversedTuple(tuple):
    """The same of a tuple."""

    __slots__ = ()

    def __len__(self):
        return super().__len__() - 1

    def __getitem__(self, index):
        return super().__getitem__(-1 - index)


class ItemDict(dict):
    """A dict, which is no sequence whatever it defines."""

    def __getitem__(self, index):
        return 1


class StrSubclass(str):
    """A subclass of str, which is refused as a str is."""

    __slots__ = ()
