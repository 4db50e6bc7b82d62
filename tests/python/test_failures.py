"""What goes wrong says why, and does no harm."""
import os
import pathlib
import subprocess
import sys
from collections.abc import Callable

import pytest
import vqreg
from support import Handler, as_nobody, run, wait_for


def test_missing_directory_is_named(tmp_path: pathlib.Path) -> None:
    with pytest.raises(vqreg.StoreError) as caught:
        vqreg.Store(tmp_path / "missing/store.cfg")
    assert isinstance(caught.value, OSError)
    assert str(caught.value) == (f"{tmp_path}/missing/store.cfg: the directory {tmp_path}/missing "
                                 "does not exist")
    assert caught.value.code == -1054535753 and caught.value.text == str(caught.value)
    assert vqreg.why(tmp_path / "missing/store.cfg") == caught.value.text


def test_path_that_is_no_file_is_named(tmp_path: pathlib.Path) -> None:
    with pytest.raises(vqreg.StoreError, match="it is not a file"):
        vqreg.Store(tmp_path)
    with pytest.raises(vqreg.StoreError, match="an empty path is no store"):
        vqreg.Store("")
    with pytest.raises(ValueError, match="NUL: byte 2"):
        vqreg.Store("a\0b")
    with pytest.raises(ValueError, match="NUL: byte 2"):
        vqreg.Store(tmp_path / "store.cfg", root="a\0b")


@pytest.mark.parametrize("root, reason", [
    ("a]b", "a key name must not hold a closing bracket: byte 2"), ("", "a key name must not be empty"),
    ("/", "a key name must not be empty"), ("a//b", "a key name must not be empty"),
    ("ä\n", "a key name must not hold a line feed: byte 3"), ("<root>", "a key must not be named <root>"),
    ("x" * 2046, "its line would take 2048 bytes, and may take 2047"), ("\ud800", "a lone surrogate: byte 1")],
    ids=lambda text: ascii(text)[:20])
def test_root_key_that_cannot_be_stored_says_why(path: pathlib.Path, root: str, reason: str) -> None:
    with pytest.raises(vqreg.NotStorableError, match=reason):
        vqreg.Store(path, root=root)
    assert not path.exists()


def test_nothing_stands_in_the_way_of_a_store_that_is_not_there(path: pathlib.Path) -> None:
    assert vqreg.why(path) is None and vqreg.which(path) == str(path)
    assert not path.exists()


def test_path_may_be_relative_and_of_any_kind(tmp_path: pathlib.Path,
                                              monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    names: list[str | bytes | pathlib.Path] = ["a.cfg", b"b\xff.cfg", pathlib.Path("c.cfg")]
    for name in names:
        with vqreg.Store(name) as store:
            store["K", "n"] = 1
            assert store.file == os.path.join(tmp_path, os.fsdecode(name))
            assert repr(store) == f"Store({store.file!r})"
        assert os.path.exists(name)


def test_absolute_path_needs_no_working_directory(path: pathlib.Path) -> None:
    assert run("""
os.mkdir(sys.argv[1])
os.chdir(sys.argv[1])
os.rmdir(sys.argv[1])
with vqreg.Store(sys.argv[2]) as s:
    s["K", "n"] = 1
print(vqreg.which(sys.argv[2]))
""", str(path.with_name("gone")), str(path)) == f"{path}\n"


MALFORMED = '[Velquist]\n[Velquist/K]\n"n" =dword:1\n'


def test_malformed_file_cannot_be_opened(path: pathlib.Path) -> None:
    path.write_text(MALFORMED)
    with pytest.raises(vqreg.MalformedError) as caught:
        vqreg.Store(path)
    assert str(caught.value) == vqreg.why(path) == f'{path}:3:4: no "=" follows the name'
    assert isinstance(caught.value, (vqreg.StoreError, OSError))


def test_file_that_becomes_malformed_is_named(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "n"] = 1
    path.write_text(MALFORMED)
    store.reload()
    uses: dict[str, Callable[[], object]] = {
        "read": lambda: store["K", "n"], "get": lambda: store.get("K", "n", 1),
        "set": lambda: store.__setitem__(("K", "n"), 1), "in": lambda: ("K", "n") in store,
        "list": store.subkeys, "update": lambda: store.key("K").update(n=1),
        "watch": lambda: store.watch("K")}
    for name, use in uses.items():
        with pytest.raises(vqreg.MalformedError) as caught:
            use()
            print("no exception from", name)
        assert str(caught.value) == f'{path}:3:4: no "=" follows the name'
    assert path.read_text() == MALFORMED


def test_store_without_permission_is_named(path: pathlib.Path) -> None:
    path.write_text("[Velquist]\n")
    path.chmod(0)
    for above in list(path.parents)[:-2]:
        above.chmod(0o755)

    def work() -> None:
        with pytest.raises(vqreg.StoreError, match=f"{path}: the file may not be read"):
            with vqreg.Store(path) as other:
                other["K", "n"]
        with pytest.raises(vqreg.StoreError, match="does not exist, and the directory .* may not be"):
            vqreg.Store(path.with_name("other.cfg"))

    if as_nobody(work) == 77:
        pytest.skip("a process may not become another user here")
    assert as_nobody(work) == 0


def test_change_that_cannot_be_written_is_told(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "n"] = 1
    path.chmod(0o644)
    for above in list(path.parents)[:-2]:
        above.chmod(0o755)

    def work() -> None:
        with vqreg.Store(path) as other:
            assert other["K", "n"] == 1
            with pytest.raises(vqreg.StoreError, match="cannot be read or replaced"):
                other["K", "n"] = 2
            with pytest.raises(vqreg.StoreError, match="cannot be read or replaced"):
                with other.update() as u:
                    u["K", "n"] = 3

    if as_nobody(work) == 77:
        pytest.skip("a process may not become another user here")
    assert as_nobody(work) == 0
    assert store["K", "n"] == 1


def test_closed_store_is_a_value_error(path: pathlib.Path) -> None:
    store = vqreg.Store(path)
    assert not store.closed
    store.close()
    store.close()
    assert store.closed and repr(store) == "Store(closed)"
    uses: list[Callable[[], object]] = [
        lambda: store["K", "n"], lambda: store.get("K", "n"), store.watch, store.notify,
        lambda: store.file, lambda: store.update().__setitem__(("K", "n"), 1)]
    for use in uses:
        with pytest.raises(ValueError, match="the store is closed"):
            use()


def test_reload_reads_what_an_editor_has_written(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "n"] = 1
    path.write_text('[Velquist]\n[Velquist/K]\n"n"=dword:00000002\n')
    store.reload()
    assert store["K", "n"] == 2


def test_notify_wakes_handlers(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "Message"] = "first"
    with Handler(path) as handler:
        store["K", "Message"] = "second"
        store.notify()
        wait_for(handler.calls)
        assert handler.value("K", "Message") == "second"


def test_library_that_is_missing_is_named() -> None:
    environment = {name: value for name, value in os.environ.items() if name != "LD_LIBRARY_PATH"}
    done = subprocess.run([sys.executable, "-c", "import vqreg"], env=environment,
                          capture_output=True, text=True, check=False)
    if done.returncode == 0:
        pytest.skip("the library is installed here")
    assert "ImportError: vqreg needs libVQRegLib.so.1 (Debian: libvqreglib1): " in done.stderr


def test_library_without_the_c_interface_is_named(tmp_path: pathlib.Path) -> None:
    source = tmp_path / "old.c"
    source.write_text("int nothing;\n")
    subprocess.run(["gcc", "-shared", "-o", tmp_path / "libVQRegLib.so.1", source], check=True)
    done = subprocess.run([sys.executable, "-c", "import vqreg"], capture_output=True, text=True,
                          env={**os.environ, "LD_LIBRARY_PATH": str(tmp_path)}, check=False)
    assert "ImportError: libVQRegLib.so.1 is older than this module: it has no vqreg_" in done.stderr


def test_end_of_the_interpreter_closes_what_is_open(path: pathlib.Path) -> None:
    program = "s = vqreg.Store(sys.argv[1]); w = s.watch(); s['K', 'n'] = 1; l = [s, w]; l.append(l)"
    assert run(program, str(path)) == ""
