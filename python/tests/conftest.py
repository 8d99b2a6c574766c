"""Fixtures of the pelcast package tests."""

import os
from pathlib import Path

import pytest

from frames import REPOSITORY, Command


@pytest.fixture
def command(tmp_path):
    binary = Path(os.environ.get("PELCAST_BINARY", REPOSITORY / "build" / "release" / "pelcast"))
    if not binary.is_file():
        pytest.skip(f"no pelcast executable at {binary} (build the release preset or set PELCAST_BINARY)")
    return Command(binary, tmp_path)
