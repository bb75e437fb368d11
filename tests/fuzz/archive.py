"""The archives of first inputs, seeds/FUZZER.tar: the same bytes for the same inputs."""

import io
import pathlib
import tarfile

SEEDS = pathlib.Path(__file__).resolve().parent / "seeds"


def read(fuzzer):
    """The inputs by their names."""
    path = SEEDS / f"{fuzzer}.tar"
    if not path.exists():
        return {}
    with tarfile.open(path) as archive:
        return {member.name: archive.extractfile(member).read() for member in archive}


def write(fuzzer, inputs):
    SEEDS.mkdir(exist_ok=True)
    with tarfile.open(SEEDS / f"{fuzzer}.tar", "w:xz", format=tarfile.USTAR_FORMAT) as archive:
        for name in sorted(inputs):
            member = tarfile.TarInfo(name)  # of nobody in particular, in 1970
            member.size = len(inputs[name])
            archive.addfile(member, io.BytesIO(inputs[name]))
