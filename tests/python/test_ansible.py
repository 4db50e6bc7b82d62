"""The Ansible module changes what is not as it shall be, and tells it."""
import ast
import pathlib

import pytest
import vqreg
from ansible_module import FOLDER, call, loaded, play, program
from support import Handler, wait_for


def test_value_is_set_once(path: pathlib.Path) -> None:
    first = call(file=str(path), key="Network/Ports", name="Http", value=8080)
    assert first["changed"] is True and first["file"] == str(path)
    assert first["before"] is None and first["after"] == {"type": "dword", "value": 8080}
    assert first["diff"] == {"before": "", "after": 'Network/Ports "Http" = dword 8080\n'}
    text = path.read_bytes()
    again = call(file=str(path), key="network/ports", name="HTTP", value="8080")
    assert again["changed"] is False and again["before"] == again["after"]
    assert again["diff"]["before"] == again["diff"]["after"]
    assert path.read_bytes() == text
    assert call(file=str(path), key="Network/Ports", name="Http", value=81)["before"]["value"] == 8080
    with vqreg.Store(path) as store:
        assert store["Network/Ports", "Http"] == 81


@pytest.mark.parametrize("given, kind, value", [
    (8080, None, 8080), ("8080", None, 8080), ("0x1F90", None, 8080), (True, None, 1), (False, None, 0),
    ("web", None, "web"), ("", None, ""), ("007", None, "007"), ("4294967296", None, "4294967296"),
    ("-1", None, "-1"), ("0x123456789", None, "0x123456789"),
    ("8080", "string", "8080"), (12, "string", "12"), ("ä ü", "string", "ä ü"),
    ("007", "dword", 7), ("0xff", "dword", 255), (True, "dword", 1),
    ("true", "dword", 1), ("False", "dword", 0), ("true", None, "true"),
    ("00FFab", "binary", b"\0\xff\xab"), ("", "binary", b""),
])
def test_value_is_of_the_type_that_is_named_or_guessed(path: pathlib.Path, given: object,
                                                       kind: str | None, value: vqreg.Value) -> None:
    answer = call(file=str(path), key="K", name="n", value=given, **({"type": kind} if kind else {}))
    with vqreg.Store(path) as store:
        assert store["K", "n"] == value and type(store["K", "n"]) is type(value)
    shown = value.hex().upper() if isinstance(value, bytes) else value
    assert answer["after"]["value"] == shown
    assert call(file=str(path), key="K", name="n", value=given)["changed"] is False


def test_truth_that_arrives_as_a_text_is_a_number_where_one_is(path: pathlib.Path) -> None:
    with vqreg.Store(path) as store:
        store["K", "n"] = 1
    assert call(file=str(path), key="K", name="n", value="True")["changed"] is False
    assert call(file=str(path), key="K", name="n", value="false")["after"] == {"type": "dword", "value": 0}
    assert "a dword must be a number" in call(file=str(path), key="K", name="n", value="yes")["msg"]


def test_value_that_exists_keeps_its_type_unless_told(path: pathlib.Path) -> None:
    with vqreg.Store(path) as store:
        store["K", "n"] = "80"
    assert call(file=str(path), key="K", name="n", value=80)["changed"] is False
    assert call(file=str(path), key="K", name="n", value=81)["after"] == {"type": "string", "value": "81"}
    answer = call(file=str(path), key="K", name="n", value=81, type="dword")
    assert answer["changed"] is True and answer["after"] == {"type": "dword", "value": 81}
    failed = call(file=str(path), key="K", name="n", value="web")
    assert "a dword must be a number" in failed["msg"]


@pytest.mark.parametrize("options, reason", [
    ({"value": -1}, "between 0 and 4294967295"), ({"value": 4294967296}, "between 0 and 4294967295"),
    ({"value": "x", "type": "dword"}, "a dword must be a number"),
    ({"value": 1.5}, "a string must be a text: 1.5; put it in quotes"),
    ({"value": True, "type": "string"}, "a string must be a text: True; put it in quotes"),
    ({"value": "ABC", "type": "binary"}, "pairs of hexadecimal digits"),
    ({"value": 10, "type": "binary"}, "pairs of hexadecimal digits"),
    ({"value": "a\nb"}, "must not hold a line feed: byte 2"),
    ({"value": 1, "name": "a:b"}, "must not hold a colon: byte 2"),
    ({"value": 1, "key": "a]"}, "must not hold a closing bracket: byte 2"),
    ({"value": 1, "name": "B"}, "the name is a key's"),
    ({"value": 1, "key": "A/v/x"}, "the name is a value's"),
    ({}, "needs a value"), ({"name": None, "value": 1}, "name"), ({"value": 1, "type": "float"}, "type"),
], ids=str)
def test_what_cannot_be_fails_in_check_mode_too(path: pathlib.Path, options: dict[str, object],
                                                reason: str) -> None:
    with vqreg.Store(path) as store:
        store["A", "v"] = 1
        store.create("A/B")
    before = path.read_bytes()
    given: dict[str, object] = {"key": "A", "name": "n", **options}
    for check in (True, False):
        answer = call(check, file=str(path), **{k: v for k, v in given.items() if v is not None})
        assert answer["failed"] is True and reason in answer["msg"]
    assert path.read_bytes() == before


def test_value_is_deleted_once(path: pathlib.Path) -> None:
    with vqreg.Store(path) as store:
        store["K", "n"] = b"\xab"
    absent = {"file": str(path), "key": "K", "name": "N", "state": "absent", "value": "ignored"}
    assert call(True, **absent)["changed"] is True
    answer = call(**absent)
    assert answer["changed"] is True and answer["after"] is None
    assert answer["before"] == {"type": "binary", "value": "AB"}
    assert answer["diff"] == {"before": 'K "N" = binary AB\n', "after": ""}
    assert path.read_text() == "[Velquist]\n[Velquist/K]\n"
    assert call(**absent)["changed"] is False


def test_key_is_made_and_deleted_once(path: pathlib.Path) -> None:
    key = {"file": str(path), "key": "A/B"}
    assert call(**key)["changed"] is True
    assert call(**key)["changed"] is False
    with vqreg.Store(path) as store:
        store["A/B/C", "n"] = 1
    for check in (True, False):
        assert "not empty" in call(check, state="absent", **key)["msg"]
    assert call(True, state="absent", recursive=True, **key)["changed"] is True
    answer = call(state="absent", recursive=True, **key)
    assert answer["changed"] is True
    assert answer["diff"] == {"before": 'A/B\nA/B/C\nA/B/C "n" = dword 1\n', "after": ""}
    assert path.read_text() == "[Velquist]\n[Velquist/A]\n"
    assert call(state="absent", recursive=True, **key)["changed"] is False
    assert "root key" in call(state="absent", recursive=True, file=str(path), key="")["msg"]


def test_key_that_cannot_be_shown_whole_is_a_failure(path: pathlib.Path) -> None:
    path.write_text("[Velquist]\n[Velquist/A]\n[Velquist/A//y]\n")
    answer = call(file=str(path), key="A", state="absent", recursive=True)
    assert answer["msg"] == "A: the name of a sub key is empty"


def test_check_mode_changes_nothing_and_makes_no_store(path: pathlib.Path) -> None:
    present: list[dict[str, object]] = [{"name": "n", "value": 1}, {}]
    absent: list[dict[str, object]] = [{"name": "n"}, {}]
    for options in present:
        answer = call(True, file=str(path), key="K", **options)
        assert answer["changed"] is True and answer["file"] == str(path)
    for options in absent:
        assert call(file=str(path), key="K", state="absent", **options)["changed"] is False
    assert list(path.parent.iterdir()) == []
    with vqreg.Store(path) as store:
        store["K", "n"] = 1
    before = path.read_bytes()
    assert call(True, file=str(path), key="K", name="n", value=2)["after"]["value"] == 2
    assert call(True, file=str(path), key="L")["changed"] is True
    assert path.read_bytes() == before


@pytest.mark.parametrize("text, root", [
    ("", None), ("[Other]\n[Other/Velquist]\n", None), ("[Velquists]\n", None),
    ("[Velquist]\n", "Velquist/Sub")], ids=ascii)
def test_file_without_the_root_key_is_left_as_it_is_when_nothing_changes(path: pathlib.Path, text: str,
                                                                         root: str | None) -> None:
    path.write_text(text)
    given = {"file": str(path), "key": "K", "name": "n", **({"root": root} if root else {})}
    for check in (True, False) if text else (True,):  # an empty one is opened, for who has it open may have more
        assert call(check, state="absent", **given)["changed"] is False
        assert path.read_text() == text
    answer = call(True, value=1, **given)
    assert answer["changed"] is True and answer["after"] == {"type": "dword", "value": 1}
    assert path.read_text() == text
    assert call(value=1, **given)["changed"] is True
    assert call(value=1, **given)["changed"] is False


@pytest.mark.parametrize("text, root", [
    ('[VELQUIST/K] and more\n"n"=dword:00000001\n', None),
    ('[Velquist]\r\n[velquist/k]\r\n"n"=dword:1\r\n', None),
    ('[A/B/K]\n"n"=dword:1\n', "a/b")], ids=ascii)
def test_root_key_of_the_file_is_found_as_the_library_finds_it(path: pathlib.Path, text: str,
                                                               root: str | None) -> None:
    path.write_bytes(text.encode())
    given = {"file": str(path), "key": "K", "name": "n", **({"root": root} if root else {})}
    answer = call(True, value=2, **given)
    assert answer["before"] == {"type": "dword", "value": 1}
    assert call(True, state="absent", **given)["changed"] is True


def test_store_that_cannot_be_used_is_a_failure(path: pathlib.Path) -> None:
    missing = str(path.parent / "missing/store.cfg")
    for check in (True, False):
        assert "does not exist" in call(check, file=missing, key="K", name="n", value=1)["msg"]
    path.write_text("[Velquist]\nnonsense\n")
    assert f"{path}:2:1: " in call(file=str(path), key="K", name="n", value=1)["msg"]


def test_root_key_and_default_store(path: pathlib.Path) -> None:
    assert call(file=str(path), root="Other", key="", name="n", value=1)["changed"] is True
    assert path.read_text() == '[Other]\n"n"=dword:00000001\n'
    assert call(key="K", name="n", value=1)["file"] == "/etc/Velquist.cfg"
    assert pathlib.Path("/etc/Velquist.cfg").exists()


def test_change_wakes_handlers(path: pathlib.Path) -> None:
    call(file=str(path), key="K", name="Message", value="first")
    with Handler(path) as handler:
        assert call(file=str(path), key="K", name="Message", value="second")["changed"] is True
        wait_for(handler.calls)
        assert handler.value("K", "Message") == "second"


def options(path: pathlib.Path, **given: object) -> dict[str, object]:
    """What the module has after Ansible has looked at its arguments."""
    return {"key": "K", "name": "n", "value": 1, "type": None, "state": "present", "recursive": False,
            "file": str(path), "root": None, **given}


@pytest.mark.parametrize("state", ["present", "absent"])
@pytest.mark.parametrize("root", ["a]b", "", "/", "/a", "a//b", "<root>", "a\0b", "x" * 2046],
                         ids=lambda text: ascii(text)[:20])
def test_root_key_that_cannot_be_is_refused_in_check_mode_too(path: pathlib.Path, root: str,
                                                              state: str) -> None:
    with pytest.raises(ValueError) as really:
        vqreg.Store(path, root=root)
    path.write_text("[Velquist]\n")
    for check in (True, False):
        with pytest.raises(ValueError) as caught:
            loaded().run(options(path, root=root, state=state), check)
        assert str(caught.value) == str(really.value)
    assert path.read_text() == "[Velquist]\n"


@pytest.mark.parametrize("root", ["a/b", "a\\b", "x" * 2000], ids=lambda text: ascii(text)[:20])
def test_root_key_may_be_any_other(path: pathlib.Path, root: str) -> None:
    for check in (True, False):
        assert loaded().run(options(path, root=root), check)["changed"] is True
    assert loaded().run(options(path, root=root), True)["changed"] is False


@pytest.mark.parametrize("state", ["present", "absent"])
def test_store_that_others_have_open_is_asked_though_its_file_was_emptied(path: pathlib.Path,
                                                                          state: str) -> None:
    with vqreg.Store(path) as store:
        store["K", "n"] = 1
        path.write_text("")
        assert loaded().run(options(path, state=state), False)["changed"] is (state == "absent")
        assert (("K", "n") in store) is (state == "present")


def test_change_is_in_the_file_when_handlers_are_told(path: pathlib.Path,
                                                      monkeypatch: pytest.MonkeyPatch) -> None:
    told: list[str] = []
    monkeypatch.setattr(vqreg.Store, "notify", lambda store: told.append(path.read_text()))
    for check in (True, False, False):
        loaded().run(options(path), check)
    assert told == ['[Velquist]\n[Velquist/K]\n"n"=dword:00000001\n']


def examples() -> str:
    """The examples as the module's documentation has them."""
    for node in ast.parse((FOLDER / "vqreg.py").read_text()).body:
        if isinstance(node, ast.Assign) and ast.unparse(node.targets[0]) == "EXAMPLES":
            return str(ast.literal_eval(node.value))
    raise AssertionError("there are no examples")


def test_examples_change_what_they_say_and_then_nothing(tmp_path: pathlib.Path) -> None:
    file = pathlib.Path("/etc/Velquist.cfg")
    file.unlink(missing_ok=True)
    assert "changed=3 " in play(tmp_path, examples(), "--check")
    assert not file.exists()
    file.write_text('[Velquist]\n[Velquist/Network]\n[Velquist/Network/Ports]\n"Telnet"=dword:00000017\n'
                    '[Velquist/Old]\n[Velquist/Old/Sub]\n')
    printed = play(tmp_path, examples(), "--diff")
    assert "changed=5 " in printed
    for shown in ('+Network/Ports "Http" = dword 8080', '-Network/Ports "Telnet" = dword 23', "-Old/Sub"):
        assert shown in printed
    with vqreg.Store(file) as store:
        assert store.items("Network") == [("Mac", bytes.fromhex("0010A4C3F20B"))]
        assert store.items("Network/Ports") == [("Http", 8080)]
        assert store.items("Product") == [("Version", "12")]
        assert "Old" not in store
    before = file.stat().st_ino
    assert "changed=0 " in play(tmp_path, examples())
    assert file.stat().st_ino == before


def test_playbooks_use_what_it_returns(tmp_path: pathlib.Path, path: pathlib.Path) -> None:
    tasks = f"""
- vqreg: file={path} key=K name=n value=1
  register: first
- vqreg: file={path} key=K name=n value=2
  register: second
- vqreg: file={path} key=K name=n value=x
  register: third
  ignore_errors: true
- assert:
    that:
      - first.changed and first.before is none and first.after.value == 1
      - second.changed and second.before.value == 1 and second.file == "{path}"
      - third.failed and "a dword must be a number" in third.msg
"""
    assert "changed=2 " in play(tmp_path, tasks)


def test_documentation_is_shown(tmp_path: pathlib.Path) -> None:
    done = program("ansible-doc", tmp_path, "-t", "module", "vqreg")
    assert done.returncode == 0 and "> VQREG" in done.stdout and "check_mode" in done.stdout, done.stderr


def test_missing_python_module_is_named(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.delenv("PYTHONPATH")
    answer = call(key="K", name="n", value=1)
    if not answer.get("failed"):
        pytest.skip("the Python module is installed here")
    assert "python3-vqreg" in answer["msg"]
