"""The two exceptions of the array classes."""

__all__ = ["ShapeError", "SizeError"]

class ShapeError(Exception):
    """Raised if the number of elements does not match the dimensions."""

class SizeError(Exception):
    """Raised if the number of elements matches but the dimensions do not."""
