"""An engine of the library whose start field and results are arrays."""

import tempfile
from pathlib import Path

import numpy as np

from abi import harness


class Engine(harness.Engine):
    """`samples`, where given, are the physical vorticity at the start, [y, x]."""

    def __init__(self, library, samples=None, **config):
        self._folder = tempfile.TemporaryDirectory(prefix="zephane-")
        self.points = config["resolution"]
        if samples is not None:
            config["initial"] = self._write(samples)
        super().__init__(library, config)

    def advance(self, steps=1, until=None):
        return super().advance(steps=steps, until=until)

    def reset(self, samples=None):
        return super().reset(initial=None if samples is None else self._write(samples))

    def raw_spectrum(self):
        """The exported bits: N x N single-precision coefficients, [row, kx]."""
        return np.frombuffer(self.spectrum(), "<c8").reshape(self.points, self.points)

    def vorticity(self):
        """The half spectrum in double precision, as the model stores it."""
        return self.raw_spectrum()[:, : self.points // 2 + 1].astype(complex)

    def fields(self, include_velocity=True):
        """The planes w, u, v and the snapshot's report."""
        path = self._path("fields")
        report = self.export(fields=path, include_velocity=include_velocity)
        planes = np.fromfile(path, "<f4").reshape(3, self.points, self.points)
        return planes, report

    def close(self):
        super().close()
        self._folder.cleanup()

    def _path(self, name):
        return str(Path(self._folder.name) / name)

    def _write(self, samples):
        path = self._path("initial")
        np.asarray(samples, "<f4").tofile(path)
        return path
