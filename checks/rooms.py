"""The rooms of src and their order, for all checks of the layers."""

# Lowest first. A room may use itself and the rooms before it.
ROOMS = ("module", "storage", "elements", "construct", "indexing", "operations", "module/entry")


def room_of(path):
    """The room of a path from the root of the project or from src; None if it is in no room."""
    parts = path.parts[1:] if path.parts[0] == "src" else path.parts
    if len(parts) < 2:
        return None
    room = "/".join(parts[:2]) if parts[:2] == ("module", "entry") else parts[0]
    return room if room in ROOMS else None


def is_above(room, other):
    """Whether `other` may not use `room`."""
    return ROOMS.index(room) > ROOMS.index(other)
