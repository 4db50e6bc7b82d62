"""The module as a whole: what it names, what it says of itself, what it costs to have it."""
import inspect
import os
import pathlib
import subprocess
import sys

import vqreg


def public() -> dict[str, object]:
    """Everything that users meet, by its full name: what the module names, with methods and properties."""
    found: dict[str, object] = {"vqreg": vqreg}
    for name in vqreg.__all__:
        each = getattr(vqreg, name)
        if name != "Value":
            found[name] = each
        if inspect.isclass(each):
            for member, value in vars(each).items():
                if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                    found[f"{name}.{member}"] = value
    return found


def test_everything_public_has_a_docstring() -> None:
    found = public()
    assert len(found) > 40
    assert [name for name, each in found.items() if not inspect.getdoc(each)] == []


def test_everything_public_is_named() -> None:
    modules = {name for name, each in vars(vqreg).items() if inspect.ismodule(each)}
    names = {name for name in vars(vqreg) if not name.startswith("_")} - modules
    assert names == set(vqreg.__all__)


def test_pydoc_shows_it() -> None:
    text = subprocess.run([sys.executable, "-m", "pydoc", "vqreg"], check=True, capture_output=True,
                          text=True).stdout
    for name in ("class Store", "class Update", "class Watch", "class NotStorableError", "which(file"):
        assert name in text
    assert 'u["Network/Ports", "Http"] = 8081' in text


def test_is_of_the_librarys_version() -> None:
    assert vqreg.__version__ == os.environ["VQREG_VERSION"]


def test_declares_nothing_that_the_header_does_not() -> None:
    header = pathlib.Path(os.environ["VQREG_HEADER"]).read_text()
    assert len(vqreg._c._FUNCTIONS) > 20
    for name in vqreg._c._FUNCTIONS:
        assert f" {name}(" in header or f"*{name}(" in header or f"* {name}(" in header, name
    codes = {name: value for name, value in vars(vqreg._c).items() if name.startswith("E_")}
    assert len(codes) > 10
    for name, value in codes.items():
        assert f"#define VQREG_{name} ({value})" in header, name


def test_does_not_load_asyncio_for_who_does_not_use_it() -> None:
    program = "import sys, vqreg; sys.exit('asyncio' in sys.modules)"
    assert subprocess.run([sys.executable, "-c", program], check=False).returncode == 0


def test_says_that_it_has_types() -> None:
    assert pathlib.Path(inspect.getfile(vqreg)).with_name("py.typed").exists()
