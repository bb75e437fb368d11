import pytest


@pytest.fixture
def plant(tmp_path):
    """plant({"Base/A.h": "int a;\\n"}) makes a tiny tree and gives its path."""

    def make(contents):
        for name, text in contents.items():
            (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
            (tmp_path / name).write_text(text)
        return tmp_path

    return make
