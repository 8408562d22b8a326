"""ZeltoCore from Python: typed values, property maps, archive files, skeletons and poses."""


class ZeltoError(ValueError):
    """A library operation failed; the message carries the library's own messages."""


class ZeltoWarning(UserWarning):
    """A library warning from an operation that still completed."""


from zelto._zelto import *  # noqa: E402,F401,F403
from zelto._zelto import __doc__ as _doc  # noqa: E402

__doc__ = _doc
