from harness import new_folder, run, terminal  # noqa: F401 (fixtures)
from preflight import check  # noqa: F401 (fixture)
from kernel import found  # noqa: F401 (fixture)
