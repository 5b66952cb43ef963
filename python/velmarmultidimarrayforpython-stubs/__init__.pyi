"""The extension module: the classes of velmar, the exceptions of vlexceptions and the capsule."""

from typing_extensions import CapsuleType
from velmar import MCPyIter as MCPyIter
from velmar import double as double
from velmar import int8 as int8
from velmar import int16 as int16
from velmar import int32 as int32
from velmar import int64 as int64
from velmar import logical as logical
from velmar import single as single
from velmar import uint8 as uint8
from velmar import uint16 as uint16
from velmar import uint32 as uint32
from velmar import uint64 as uint64
from vlexceptions import ShapeError as ShapeError
from vlexceptions import SizeError as SizeError

# The table of functions for native clients.
_capi: CapsuleType
