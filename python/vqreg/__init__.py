"""The common configuration store of a machine's programs.

Keys form a tree, values below them are numbers (int, 0 to 4294967295), texts (str) or bytes::

    import vqreg

    with vqreg.Store() as s:
        s["Network/Ports", "Http"] = 8080
        port = s.get("Network/Ports", "Http", 80)
        with s.update() as u:
            u["Network/Ports", "Http"] = 8081
        for change in s.watch("Network", timeout=5):
            print(change.path, change.name, change.before, change.after)

Every change is in the store's file, and visible to every other process, when the call has returned. What
the file could not give back is a ValueError that names the byte.
"""
from .check import check
from .errors import (KindError, MalformedError, NotEmptyError, NotFoundError, NotStorableError,
                     StoreError, VqregError, which, why)
from .key import Key
from .store import Store
from .update import Update
from .values import Value
from .watch import Change, Watch

__all__ = ["Change", "Key", "KindError", "MalformedError", "NotEmptyError", "NotFoundError",
           "NotStorableError", "Store", "StoreError", "Update", "Value", "VqregError", "Watch",
           "check", "which", "why"]
__version__ = "1.0.0"
