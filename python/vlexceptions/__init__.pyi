"""The two exceptions of the array classes."""

__all__ = ["ShapeError", "SizeError"]

class ShapeError(Exception):
    """Raised where the number of elements is another than the dimensions say."""

class SizeError(Exception):
    """Raised where the number of elements is right and the dimensions are others."""
