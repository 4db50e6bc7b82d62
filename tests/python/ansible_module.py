"""The Ansible module, started as Ansible starts it, and as playbooks use it."""
from __future__ import annotations

import importlib.util
import json
import os
import pathlib
import subprocess
import sys
from typing import Any

import vqreg

FOLDER = pathlib.Path(vqreg.__file__).parent.parent / "ansible"


def call(check: bool = False, /, **options: Any) -> dict[str, Any]:
    """What the module answers to these options, which it gets as JSON on its standard input."""
    arguments = {"ANSIBLE_MODULE_ARGS": {**options, "_ansible_check_mode": check}}
    # -P: beside it, "vqreg" would be the module itself.
    done = subprocess.run([sys.executable, "-P", str(FOLDER / "vqreg.py")], input=json.dumps(arguments),
                          capture_output=True, text=True, check=False)
    answer: dict[str, Any] = json.loads(done.stdout)
    assert (done.returncode != 0) == answer.get("failed", False), done.stderr
    return answer


def loaded() -> Any:
    """The module as Python has it, under another name than that of the package."""
    spec = importlib.util.spec_from_file_location("module_for_ansible", FOLDER / "vqreg.py")
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def program(name: str, home: pathlib.Path, *arguments: str) -> subprocess.CompletedProcess[str]:
    """Runs one of Ansible's programs with a home of its own and this machine as its only one."""
    environment = {**os.environ, "HOME": str(home), "ANSIBLE_LIBRARY": str(FOLDER),
                   "ANSIBLE_LOCAL_TEMP": str(home / "local"), "ANSIBLE_REMOTE_TEMP": str(home / "remote"),
                   "ANSIBLE_NOCOLOR": "1", "LC_ALL": "C.UTF-8"}
    return subprocess.run([name, *arguments], env=environment, cwd=home, capture_output=True, text=True,
                          stdin=subprocess.DEVNULL, check=False)


def play(home: pathlib.Path, tasks: str, *arguments: str) -> str:
    """What ansible-playbook prints for tasks on this machine, which must end well."""
    book = home / "book.yml"
    lines = "".join(f"    {line}\n" if line else "\n" for line in tasks.strip().splitlines())
    book.write_text("- hosts: localhost\n  connection: local\n  gather_facts: false\n  vars:\n"
                    f"    ansible_python_interpreter: {sys.executable}\n  tasks:\n" + lines)
    done = program("ansible-playbook", home, "-i", "localhost,", *arguments, str(book))
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout
