"""Values come back as they were set, and what cannot is refused before anything is changed."""
import enum
import pathlib
import random
from collections.abc import Callable

import pytest
import vqreg
from support import run

VALUES = [0, 1, 0x7FFF_FFFF, 0x8000_0000, 0xFFFF_FFFF, "", "x", " spaces ", "äöü €", "\udcff\udc80",
          "a]b\"c:d\\e/f\t\x01\x7f", "dword:1", "[Velquist]", "x" * 2000, b"", b"\0", b"\0\n\r\"",
          bytes(range(256)), b"\xff" * 1018]


@pytest.mark.parametrize("value", VALUES, ids=lambda value: repr(value)[:20])
def test_come_back_with_their_type(store: vqreg.Store, path: pathlib.Path, value: vqreg.Value) -> None:
    store["Network/Ports", "n"] = value
    with vqreg.Store(path) as other:
        assert other["network/ports", "N"] == value
        assert type(other["Network/Ports", "n"]) is type(value)
    read = run("print(ascii(vqreg.Store(sys.argv[1])['Network/Ports', 'n']))", str(path))
    assert read == ascii(value) + "\n"


def test_random_texts_and_bytes_come_back(store: vqreg.Store, path: pathlib.Path) -> None:
    seed = random.SystemRandom().randrange(1 << 32)
    source = random.Random(seed)
    for i in range(60):
        data = source.randbytes(source.randrange(900))
        text = data.translate(None, b"\0\n\r").decode("utf-8", "surrogateescape")
        store["Random", f"b{i}"] = data
        store["Random", f"t{i}"] = text
        with vqreg.Store(path) as other:
            assert other["Random", f"b{i}"] == data, f"seed {seed}"
            assert other["Random", f"t{i}"] == text, f"seed {seed}"


def test_are_in_the_file_as_the_format_has_them(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "a"] = 255
    store["K", "b"] = "ä"
    store["K", "c"] = b"\0\xff"
    assert path.read_bytes() == (b'[Velquist]\n[Velquist/K]\n"a"=dword:000000FF\n'
                                 b'"b"=string:\xc3\xa4\n"c"=binary:00FF\n')


def test_replace_values_of_another_type(store: vqreg.Store) -> None:
    replacements: list[vqreg.Value] = [1, "x", b"y", 2]
    for value in replacements:
        store["K", "n"] = value
        assert store["K", "n"] == value


def test_number_is_one_of_32_bits(store: vqreg.Store, path: pathlib.Path) -> None:
    before = path.read_bytes()
    for number in (-1, 0x1_0000_0000, 1 << 64, -(1 << 31)):
        with pytest.raises(OverflowError, match="between 0 and 4294967295"):
            store["K", "n"] = number
    assert path.read_bytes() == before


def test_bool_is_a_number_and_so_are_enumerations(store: vqreg.Store) -> None:
    class Level(enum.IntEnum):
        HIGH = 7

    store["K", "yes"] = True
    store["K", "level"] = Level.HIGH
    assert store["K", "yes"] == 1 and type(store["K", "yes"]) is int
    assert store["K", "level"] == 7


def test_bytes_may_be_any_of_their_kind(store: vqreg.Store) -> None:
    store["K", "a"] = bytearray(b"\0a")
    store["K", "m"] = memoryview(b"xyzw")[::2]
    assert store["K", "a"] == b"\0a"
    assert store["K", "m"] == b"xz"


@pytest.mark.parametrize("value", [None, 1.0, [], ("x",), object()], ids=str)
def test_of_other_types_are_refused(store: vqreg.Store, value: object) -> None:
    with pytest.raises(TypeError, match="an int, a str or bytes, not"):
        store["K", "n"] = value  # type: ignore[assignment]


@pytest.mark.parametrize("text, reason", [
    ("a\nb", "a line feed: byte 2"),
    ("\r", "a carriage return: byte 1"),
    ("abc\0", "a NUL: byte 4"),
    ("ä\n", "a line feed: byte 3"),
    ("x" * 2037, "its line would take 2048 bytes, and may take 2047"),
    (b"x" * 1019, "its line would take 2049 bytes, and may take 2047"),
], ids=lambda value: repr(value)[:20])
def test_that_the_file_cannot_hold_name_the_byte(store: vqreg.Store, path: pathlib.Path,
                                                 text: vqreg.Value, reason: str) -> None:
    before = path.read_bytes()
    with pytest.raises(ValueError, match=reason) as caught:
        store["K", "n"] = text
    assert isinstance(caught.value, vqreg.NotStorableError)
    assert str(caught.value).startswith('K "n": ')
    for check in (store.check, vqreg.check):
        with pytest.raises(vqreg.NotStorableError, match=reason):
            check("K", "n", text)
        check("K", "n", "x")
    assert path.read_bytes() == before


def test_lone_surrogate_names_the_byte(store: vqreg.Store) -> None:
    uses: list[Callable[[], object]] = [
        lambda: store.__setitem__(("K", "n"), "ä\udcff\ud800"), lambda: store["K", "ä\udcff\udc00"],
        lambda: store.get("ä\udcff\udfff", "n"), lambda: store.update().create("ä\udcff\ud800"),
        lambda: vqreg.check("K", "n", "ä\udcff\ud800"), lambda: store.watch("ä\udcff\ud800")]
    for use in uses:
        with pytest.raises(vqreg.NotStorableError, match="must not hold a lone surrogate: byte 4"):
            use()
