"""Types of velmar.notebook; the documentation is in the module itself."""

from typing import Any

__all__ = ["load_ipython_extension", "unload_ipython_extension"]

# IPython is optional, so its types cannot be named here.
def load_ipython_extension(ipython: Any) -> None: ...
def unload_ipython_extension(ipython: Any) -> None: ...
