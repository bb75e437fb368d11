import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "command"))

from harness import new_folder, run, terminal  # noqa: E402, F401 (fixtures)
