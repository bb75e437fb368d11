import pytest

pytest.register_assert_rewrite("program", "explained")  # the reasons of their assertions are shown as those of a test

from collection import KINDS, dumps  # noqa: E402


def counted(kind):
    found = dumps(kind)
    return f"{kind} {len(found)} ({sum(dump.source == 'debian' for dump in found)} of Debian's sources)"


def pytest_terminal_summary(terminalreporter):
    terminalreporter.write_line("dumps of machines: " + ", ".join(counted(kind) for kind in KINDS))


def pytest_generate_tests(metafunc):
    """A test that takes `KIND_dump` is made for each dump of the kind, or those that `only` asks for."""
    for name in metafunc.fixturenames:
        kind = name.removesuffix("_dump").replace("_", "-")
        if name.endswith("_dump") and kind in KINDS:
            wanted = getattr(metafunc.function, "wanted", lambda dump: True)
            found = [dump for dump in dumps(kind) if wanted(dump)]
            metafunc.parametrize(name, found, ids=[str(dump) for dump in found])
