import pytest
from desk import Desk


@pytest.fixture
def desk(tmp_path):
    return Desk(tmp_path)
