"""Sequences and numbers written in Python that misbehave while they are read."""

from __future__ import annotations


class Scripted:
    """A sequence with prepared answers and a log of the calls.

    `items` has the answer for each index, or an `Answers` with one answer per call. `lengths` are
    the answers of len(), one per call. The last answer is repeated. An answer that is an exception
    is raised, and one that is a function is called.
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
    """Answers to repeated calls: one per call, and the last one from then on."""

    def __init__(self, *answers):
        self.answers = list(answers)

    def next(self):
        answer = self.answers.pop(0) if len(self.answers) > 1 else self.answers[0]
        if isinstance(answer, BaseException):
            raise answer
        return answer() if callable(answer) else answer


class Boom(Exception):
    """Raised only by the sequences of the tests."""


def then(action, value):
    """An answer: call the action, then return the value."""

    def answer():
        action()
        return value

    return answer


class Unsized:
    """Items by number, without a length."""

    def __getitem__(self, index):
        return 1


class BadLength:
    """A length that the interpreter refuses."""

    def __init__(self, length):
        self.length = length

    def __len__(self):
        return self.length

    def __getitem__(self, index):
        return 1


class SequenceInt(int):
    """An int with items by number, which is therefore walked as a sequence."""

    def __len__(self):
        return 2

    def __getitem__(self, index):
        return index + 5


class SequenceFloat(float):
    """A float with items by number."""

    __len__ = SequenceInt.__len__
    __getitem__ = SequenceInt.__getitem__


class ReversedList(list):
    """A list whose own __getitem__ and __len__ differ from what it stores."""

    def __len__(self):
        return super().__len__() - 1

    def __getitem__(self, index):
        return super().__getitem__(-1 - index)


class ReversedTuple(tuple):
    """A tuple that differs in the same way."""

    __slots__ = ()

    def __len__(self):
        return super().__len__() - 1

    def __getitem__(self, index):
        return super().__getitem__(-1 - index)


class ItemDict(dict):
    """A dict, which is never a sequence, whatever methods it has."""

    def __getitem__(self, index):
        return 1


class StrSubclass(str):
    """A subclass of str, which is refused as a str is."""

    __slots__ = ()
