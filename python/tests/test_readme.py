"""The README's example runs as written and gives PNGs of the frames."""

import re

import numpy as np
import pytest

import pelcast
from frames import REPOSITORY, frame_image

Image = pytest.importorskip("PIL.Image")


def readme_example(path):
    blocks = re.findall(r"```python\n(.*?)```", path.read_text(), re.S)
    assert blocks, f"no python example in {path}"
    return blocks[0]


@pytest.mark.parametrize("readme", ["python/README.md", "README.md"])
def test_readme_example(readme, tmp_path, monkeypatch):
    images = [frame_image("rgba8888", 1920, 1080, seed) for seed in (1, 2)]
    (tmp_path / "ui.zpak").write_bytes(b"".join(pelcast.encode(image, "rgba8888") for image in images))
    monkeypatch.chdir(tmp_path)
    exec(compile(readme_example(REPOSITORY / readme), readme, "exec"), {})
    for i, image in enumerate(images):
        with Image.open(tmp_path / f"ui-{i}.png") as png:
            assert png.mode == "RGBA"
            np.testing.assert_array_equal(np.asarray(png), image)
    assert not (tmp_path / "ui-2.png").exists()
