"""The C interface as ctypes sees it: vqreg.h, and nothing more."""
import ctypes
import os
from ctypes import POINTER, c_char_p, c_int, c_size_t, c_uint32, c_void_p

OK = 0
E_FAIL = -1054535776
E_NOT_FOUND = -1054535774
E_NOT_A_KEY = -1054535773
E_NOT_A_VALUE = -1054535772
E_KEY_NOT_FOUND = -1054535768
E_BAD_TYPE = -1054535760
E_BUFFER_TOO_SMALL = -1054535759
E_BAD_FORMAT = -1054535758
E_INVALID_HANDLE = -1054535757
E_KEY_NOT_EMPTY = -1054535756
E_FILE_OPEN = -1054535755
E_NOT_INITIALIZED = -1054535753
E_NOT_STORABLE = -1054535744

NONE, BINARY, DWORD, STRING = range(4)


class Data(ctypes.Structure):
    """vqreg_data: one state of a value."""

    _fields_ = [("type", c_int), ("size", c_size_t), ("data", c_void_p)]


class Change(ctypes.Structure):
    """vqreg_change."""

    _fields_ = [("path", c_char_p), ("name", c_char_p), ("before", Data), ("after", Data),
                ("is_present", c_int)]


# The library of another build is named by this variable, as the tests do.
library = ctypes.CDLL(os.environ.get("VQREG_LIBRARY", "libVQRegLib.so.1"))

_FUNCTIONS = {
    "vqreg_open": (c_void_p, [c_char_p, c_char_p, POINTER(c_int)]),
    "vqreg_close": (None, [c_void_p]),
    "vqreg_file": (c_char_p, [c_void_p]),
    "vqreg_strerror": (c_char_p, [c_int]),
    "vqreg_why": (c_size_t, [c_char_p, c_char_p, c_size_t]),
    "vqreg_why_not_storable": (c_size_t, [c_void_p, c_char_p, c_char_p, c_int, c_char_p, c_size_t,
                                          c_char_p, c_size_t]),
    "vqreg_begin_update": (c_int, [c_void_p]),
    "vqreg_end_update": (c_int, [c_void_p]),
    "vqreg_reload": (c_int, [c_void_p]),
    "vqreg_notify": (c_int, [c_void_p]),
    "vqreg_create_key": (c_int, [c_void_p, c_char_p]),
    "vqreg_delete_key": (c_int, [c_void_p, c_char_p]),
    "vqreg_get": (c_int, [c_void_p, c_char_p, c_char_p, POINTER(c_int), c_char_p,
                          POINTER(c_size_t)]),
    "vqreg_set_dword": (c_int, [c_void_p, c_char_p, c_char_p, c_uint32]),
    "vqreg_set_string": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p]),
    "vqreg_set_binary": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p, c_size_t]),
    "vqreg_delete_value": (c_int, [c_void_p, c_char_p, c_char_p]),
    "vqreg_list_keys": (c_int, [c_void_p, c_char_p, POINTER(POINTER(c_char_p)),
                                POINTER(c_size_t)]),
    "vqreg_list_values": (c_int, [c_void_p, c_char_p, POINTER(POINTER(c_char_p)),
                                  POINTER(c_size_t)]),
    "vqreg_free": (None, [c_void_p]),
    "vqreg_watch_open": (c_void_p, [c_void_p, c_char_p, POINTER(c_int)]),
    "vqreg_watch_fd": (c_int, [c_void_p]),
    "vqreg_watch_next": (c_int, [c_void_p, POINTER(Change)]),
    "vqreg_watch_close": (None, [c_void_p]),
}

for _name, (_result, _arguments) in _FUNCTIONS.items():
    _function = getattr(library, _name)
    _function.restype = _result
    _function.argtypes = _arguments
