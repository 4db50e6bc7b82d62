"""Each test has a store of its own."""
from __future__ import annotations

import pathlib
from collections.abc import Iterator

import pytest
import vqreg


@pytest.fixture
def path(tmp_path: pathlib.Path) -> pathlib.Path:
    return tmp_path / "store.cfg"


@pytest.fixture
def store(path: pathlib.Path) -> Iterator[vqreg.Store]:
    with vqreg.Store(path) as opened:
        yield opened
