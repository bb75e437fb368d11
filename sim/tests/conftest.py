from harness import new_folder, run, terminal  # noqa: F401 (fixtures)
