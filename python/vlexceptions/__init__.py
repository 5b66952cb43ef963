"""The two exceptions of the array classes, under the module name that they use."""

from velmarmultidimarrayforpython import ShapeError, SizeError

__all__ = ["ShapeError", "SizeError"]
