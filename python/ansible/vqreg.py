#!/usr/bin/python3
"""Makes a key or a value of a store what a playbook says."""
from __future__ import annotations

DOCUMENTATION = r"""
---
module: vqreg
short_description: Sets and deletes values of a VQRegLib store
description:
  - Makes values and keys of the configuration store of the machine's programs what they shall be, and changes
    nothing when they are already.
  - Programs that wait for changes are told.
requirements:
  - "python3-vqreg on the machine that is configured"
options:
  key:
    description:
      - The path of the key, names with C(/) between them; an empty one is the root key.
    type: str
    required: true
  name:
    description:
      - The name of the value. Without it the key itself is made or deleted.
    type: str
  value:
    description:
      - A whole number, a text, or the bytes of a binary value as pairs of hexadecimal digits.
      - C(true) and C(false) are the numbers 1 and 0, without quotes in YAML. Where they arrive as texts, as
        in C(value=true) on one line, they are so only for a C(dword).
      - For a C(string), put in quotes what YAML takes for something else, such as C(010), which arrives as 8.
      - Needed for a value that shall be present, and ignored for one that shall be absent.
    type: raw
  type:
    description:
      - The type of the value. Without it a value that exists keeps its type; for a new one, what is a number
        from 0 to 4294967295 in decimal, or in hexadecimal with C(0x), becomes a C(dword), all else a
        C(string).
    type: str
    choices: [dword, string, binary]
  state:
    description:
      - Whether the value, or the key, shall be there. A value that shall be there makes its key.
    type: str
    choices: [present, absent]
    default: present
  recursive:
    description:
      - Deletes a key with everything below it. Without it, a key that is not empty is a failure.
    type: bool
    default: false
  file:
    description:
      - The file of the store. Without it, the machine's default store.
    type: path
  root:
    description:
      - The name of the root key, if it is another one than usual.
    type: str
attributes:
  check_mode:
    support: full
    description:
      - Tells what would be changed. A store or root key that is missing is not made.
      - An empty file counts as one without values, though programs that have the store open may have some.
  diff_mode:
    support: full
    description: Shows the value, or the key with everything below it, before and after.
author: The VQRegLib maintainers
"""

EXAMPLES = r"""
- name: The port is 8080
  vqreg:
    key: Network/Ports
    name: Http
    value: 8080

- name: The version is a text, whatever it looks like
  vqreg:
    key: Product
    name: Version
    value: "12"
    type: string

- name: The address of the card
  vqreg:
    key: Network
    name: Mac
    value: 0010A4C3F20B
    type: binary

- name: There is no such value
  vqreg:
    key: Network/Ports
    name: Telnet
    state: absent

- name: The key is gone, with everything below it
  vqreg:
    key: Old
    state: absent
    recursive: true
"""

RETURN = r"""
file:
  description: The file of the store, behind symbolic links.
  returned: success
  type: str
  sample: /etc/Velquist.cfg
before:
  description: Type and value before; null when there was no such value.
  returned: when name is given
  type: dict
  sample: {"type": "dword", "value": 80}
after:
  description: Type and value after, in check mode those that there would be.
  returned: when name is given
  type: dict
  sample: {"type": "dword", "value": 8080}
"""

import os
import re
import traceback

from ansible.module_utils.basic import AnsibleModule, missing_required_lib

try:
    import vqreg
    from vqreg.check import check_root
except ImportError:
    IMPORT_FAILURE = traceback.format_exc()
else:
    IMPORT_FAILURE = None

NUMBER = re.compile(r"0[xX][0-9A-Fa-f]{1,8}|0|[1-9][0-9]{0,9}")
ANY_NUMBER = re.compile(r"0[xX][0-9A-Fa-f]+|[0-9]+")
TYPES = {int: "dword", str: "string", bytes: "binary"}


def is_number(text):
    """Whether a text becomes a number when nothing says what it shall become, as with the command."""
    return bool(NUMBER.fullmatch(text)) and number_of(text) <= 0xFFFFFFFF


def number_of(text):
    return int(text, 16) if text[:2] in ("0x", "0X") else int(text)


def to_dword(given):
    if isinstance(given, int):  # also true and false
        return int(given)
    if isinstance(given, str) and ANY_NUMBER.fullmatch(given):
        return number_of(given)
    if isinstance(given, str) and given.lower() in ("true", "false"):  # of key=value, and of templates
        return int(given.lower() == "true")
    raise ValueError(f"a dword must be a number from 0 to 4294967295, in decimal or with 0x: {given!r}")


def to_string(given):
    """A text, or a whole number as it is written in decimal.

    What YAML takes for something else is another text when it arrives. 1.10 and yes can be told from a text
    then, and are refused; 010 cannot, and is "8".
    """
    if isinstance(given, str):
        return given
    if isinstance(given, int) and not isinstance(given, bool):
        return str(given)
    raise ValueError(f"a string must be a text: {given!r}; put it in quotes")


def to_binary(given):
    if isinstance(given, str) and re.fullmatch(r"([0-9A-Fa-f]{2})*", given):
        return bytes.fromhex(given)
    raise ValueError(f"binary data must be pairs of hexadecimal digits, in quotes: {given!r}")


def wanted(given, kind, present):
    """What the value shall be."""
    if kind is None and present is not None:
        kind = TYPES[type(present)]
    if kind is None:
        kind = "dword" if isinstance(given, int) or is_number(str(given)) else "string"
    return {"dword": to_dword, "string": to_string, "binary": to_binary}[kind](given)


def described(value):
    """A value as the module returns it."""
    if value is None:
        return None
    return {"type": TYPES[type(value)], "value": value.hex().upper() if type(value) is bytes else value}


def line(path, name, value):
    """A value as a difference shows it."""
    if value is None:
        return ""
    each = described(value)
    return f'{path or "/"} "{name}" = {each["type"]} {each["value"]}\n'


def lines(store, path):
    """A key and all below it."""
    if path not in store:
        return ""
    return "".join(f"{key.path or '/'}\n" + "".join(line(key.path, name, value) for name, value in key.items())
                   for key in store.walk(path))


def set_value(store, options, apply):
    path, name = options["key"], options["name"]
    before = store.get(path, name)
    after = wanted(options["value"], options["type"], before)
    update = store.update()
    update[path, name] = after
    update.check()
    changed = type(before) is not type(after) or before != after
    if changed and apply:
        update.commit()
    return changed, before, after


def delete_value(store, options, apply):
    path, name = options["key"], options["name"]
    before = store.get(path, name)
    if before is not None and apply:
        del store[path, name]
    return before is not None, before, None


def make_value(store, options, apply):
    """A value, present or absent."""
    change = set_value if options["state"] == "present" else delete_value
    changed, before, after = change(store, options, apply)
    path, name = options["key"], options["name"]
    return {"changed": changed, "before": described(before), "after": described(after),
            "diff": {"before": line(path, name, before), "after": line(path, name, after)}}


def make_key(store, options, apply):
    """A key, present or absent."""
    path = options["key"]
    before = lines(store, path)
    if options["state"] == "present":
        update = store.update()
        update.create(path)
        update.check()
        if not before and apply:
            update.commit()
        return {"changed": not before, "diff": {"before": before, "after": before or f"{path}\n"}}
    if before:
        delete_key(store, path, options["recursive"], apply)
    return {"changed": bool(before), "diff": {"before": before, "after": ""}}


def delete_key(store, path, recursive, apply):
    if not recursive and (store.names(path) or store.subkeys(path)):
        raise ValueError(f'the key "{path}" is not empty; "recursive: true" deletes it with what is below it')
    if path in ("", "/"):
        raise ValueError("the root key cannot be deleted")
    if apply:
        store.delete(path, recursive=recursive)


def make(file, options, check_mode):
    """Does it, in one write of the store."""
    with vqreg.Store(file, root=options["root"]) as store:
        with store.locked():
            change = make_key if options["name"] is None else make_value
            result = change(store, options, not check_mode)
        # Not before the end of the lock, which writes: who is told looks at the file at once.
        if result["changed"] and not check_mode:
            store.notify()
        return result


def make_without_a_store(options):
    """What would happen in a store that is missing, or has no root key, and is not to be made for that."""
    path, name = options["key"], options["name"]
    if options["root"] is not None:
        check_root(options["root"])
    changed, after = options["state"] == "present", None
    if changed and name is not None:
        after = wanted(options["value"], options["type"], None)
    if changed:
        vqreg.check(path, name, after)
    shown = "" if not changed else f"{path}\n" if name is None else line(path, name, after)
    result = {"changed": changed, "diff": {"before": "", "after": shown}}
    return result if name is None else {**result, "before": None, "after": described(after)}


def has_root(file, root):
    """Whether a file has the root key. The opening of a store would make it, and write the file for that."""
    wanted = (root or "Velquist").encode(errors="surrogateescape").replace(b"\\", b"/").lower() + b"/"
    with open(file, "rb") as text:
        keys = re.findall(rb"^\[([^\]\r\n]*)\]", text.read(), re.MULTILINE)
    return any((key.lower() + b"/").startswith(wanted) for key in keys)


def can_be_opened(file, options, check_mode):
    """Whether the opening of the store makes nothing that the task does not ask for."""
    if options["state"] == "present" and not check_mode:
        return True
    if not os.path.exists(file):
        return False
    # An empty file says nothing about a store that others have open: its values are still there.
    was_emptied = os.path.getsize(file) == 0
    return has_root(file, options["root"]) or (was_emptied and not check_mode)


def run(options, check_mode):
    file = vqreg.which(options["file"])
    reason = vqreg.why(options["file"])
    if reason:
        raise ValueError(reason)
    if can_be_opened(file, options, check_mode):
        result = make(options["file"], options, check_mode)
    else:
        result = make_without_a_store(options)
    return {"file": file, **result}


def main():
    module = AnsibleModule(
        argument_spec={
            "key": {"type": "str", "required": True, "no_log": False},
            "name": {"type": "str"},
            "value": {"type": "raw"},
            "type": {"type": "str", "choices": ["dword", "string", "binary"]},
            "state": {"type": "str", "choices": ["present", "absent"], "default": "present"},
            "recursive": {"type": "bool", "default": False},
            "file": {"type": "path"},
            "root": {"type": "str"},
        },
        required_by={"value": "name", "type": "name"},
        supports_check_mode=True)
    if IMPORT_FAILURE:
        module.fail_json(msg=missing_required_lib("vqreg", reason="(Debian: python3-vqreg)"),
                         exception=IMPORT_FAILURE)
    options = module.params
    if options["name"] is not None and options["state"] == "present" and options["value"] is None:
        module.fail_json(msg="a value that shall be present needs a value")
    try:
        result = run(options, module.check_mode)
    except (vqreg.VqregError, OSError, ValueError, OverflowError) as error:
        module.fail_json(msg=str(error))
    module.exit_json(**result)


if __name__ == "__main__":
    main()
