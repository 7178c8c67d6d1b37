"""Output files: why one cannot be written, which format its name asks for, and NumPy files."""

from __future__ import annotations

import contextlib
import errno
import os
import shutil
import stat
import tempfile
from collections.abc import Iterator, Mapping
from pathlib import Path
from typing import Any, Union

from .errors import InvalidValueError, ZephaneError

PathLike = Union[str, "os.PathLike[str]"]

PICTURE_ENDINGS = (".png",)
RAW_ENDINGS = (".raw", ".bin", ".dat", ".f32")
NUMPY_ENDING = ".npy"

# Major number of the memory devices, such as /dev/null and /dev/full.
MEMORY_DEVICES = 1


def checked_picture(path: str) -> None:
    """Refuse the name of a picture that ends in another format's ending."""
    ending = Path(path).suffix
    if ending and ending.lower() not in PICTURE_ENDINGS:
        raise InvalidValueError(f"{path} ends in {ending}: a picture is a .png file")


def is_numpy_file(path: str) -> bool:
    """Whether a file of numbers is to be a NumPy file, not a raw one, by the ending of its name."""
    ending = Path(path).suffix
    if ending.lower() == NUMPY_ENDING:
        return True
    if ending and ending.lower() not in RAW_ENDINGS:
        known = ", ".join(RAW_ENDINGS)
        raise InvalidValueError(
            f"{path} ends in {ending}: raw files end in {known} or have no ending, NumPy files end "
            f"in {NUMPY_ENDING}"
        )
    return False


def check_outputs(sizes: Mapping[str, int]) -> None:
    """Raise ``ZephaneError`` for the first file, given with its size, that cannot be written.

    Nothing is left behind, and a file that exists stays as it is.
    """
    wanted: dict[int, int] = {}
    for path, size in sizes.items():
        reason = why_not_writable(path, size)
        if reason is not None:
            raise ZephaneError(f"Cannot write {path}: {reason}")
        if _is_special(path):
            continue
        folder = _folder(path)
        disk = os.stat(folder).st_dev
        wanted[disk] = wanted.get(disk, 0) + size
        if wanted[disk] > _free(folder):
            raise ZephaneError(f"Cannot write {path}: {_no_room(folder, wanted[disk])}")


def why_not_writable(path: PathLike, size: int = 0) -> str | None:
    """Why a file of so many bytes cannot be written, or None if no reason is found."""
    try:
        _try_to_write(path)
    except OSError as failure:
        return failure.strerror or str(failure)
    if _is_special(path):
        return None
    return _why_no_room(path, size, size)


def why_not_extended(path: PathLike, more: int) -> str | None:
    """Why a file that is being written cannot grow by so many bytes, or None."""
    return _why_no_room(path, more, os.path.getsize(path) + more)


def _why_no_room(path: PathLike, more: int, size: int) -> str | None:
    folder = _folder(path)
    if more > _free(folder):
        return _no_room(folder, more)
    largest = _largest_file()
    if largest is not None and size > largest:
        return f"{os.strerror(errno.EFBIG)}: the limit of this process is {largest} bytes"
    return None


def write_numpy_file(path: str, data: Any, descr: str, shape: tuple[int, ...]) -> None:
    """Write numbers, given as a buffer, as a NumPy file. It is whole or not there."""
    header = f"{{'descr': '{descr}', 'fortran_order': False, 'shape': {shape}, }}"
    header += " " * (-(len(header) + 11) % 64) + "\n"
    start = b"\x93NUMPY\x01\x00" + len(header).to_bytes(2, "little") + header.encode("ascii")
    with replaced_file(path) as temporary, writing(path), open(temporary, "wb") as file:
        file.write(start)
        file.write(memoryview(data))


@contextlib.contextmanager
def writing(path: PathLike, *kinds: type[Exception]) -> Iterator[None]:
    """Turns ``OSError`` and exceptions of these ``kinds`` into a ``ZephaneError`` with the path."""
    caught: tuple[type[Exception], ...] = (OSError, *kinds)
    try:
        yield
    except caught as failure:
        reason = getattr(failure, "strerror", None) or str(failure)
        raise ZephaneError(f"Cannot write {os.fspath(path)}: {reason}") from failure


@contextlib.contextmanager
def replaced_file(path: PathLike) -> Iterator[str]:
    """The name of an empty file in a ``with`` block, beside ``path``, whose place it takes at the
    end. Where the block fails, it is removed.
    """
    target = os.path.realpath(path)
    with writing(path):
        number, temporary = tempfile.mkstemp(prefix=".zephane-", dir=os.path.dirname(target))
    try:
        os.close(number)
        yield temporary
        with writing(path):
            _flush(temporary)
            os.chmod(temporary, _mode(target))
            os.replace(temporary, target)
    except BaseException:
        os.unlink(temporary)
        raise


def _flush(path: str) -> None:
    """Wait until the disk has the file."""
    number = os.open(path, os.O_RDWR)
    try:
        os.fsync(number)
    finally:
        os.close(number)


def _try_to_write(path: PathLike) -> None:
    """Raise the ``OSError`` that writing a small file would."""
    if not os.path.exists(path):
        _check_name(path)
        with tempfile.TemporaryFile(dir=_folder(path)):
            return
    mode = os.stat(path).st_mode
    if stat.S_ISFIFO(mode):  # Opening and closing it would end the reader's input.
        if not os.access(path, os.W_OK):
            raise PermissionError(errno.EACCES, os.strerror(errno.EACCES))
        return
    number = os.open(path, os.O_WRONLY | getattr(os, "O_NONBLOCK", 0))
    try:
        if stat.S_ISCHR(mode) and os.major(os.fstat(number).st_rdev) == MEMORY_DEVICES:
            os.write(number, b"\0")
    finally:
        os.close(number)


def _check_name(path: PathLike) -> None:
    """Raise the ``OSError`` for a name that the file system does not take, such as a long one."""
    try:
        os.lstat(path)
    except FileNotFoundError:
        if os.fspath(path).endswith(os.sep):
            raise


def _is_special(path: PathLike) -> bool:
    return os.path.exists(path) and not os.path.isfile(path)


def _folder(path: PathLike) -> str:
    return os.path.dirname(os.path.realpath(path))


def _free(folder: str) -> int:
    return shutil.disk_usage(folder).free


def _no_room(folder: str, size: int) -> str:
    return f"{os.strerror(errno.ENOSPC)}: {size} bytes are needed and {_free(folder)} free"


def _largest_file() -> int | None:
    """The limit of this process for the size of a file, or None without one."""
    try:
        import resource
    except ImportError:
        return None
    soft, _ = resource.getrlimit(resource.RLIMIT_FSIZE)
    return None if soft == resource.RLIM_INFINITY else soft


def _mode(path: str) -> int:
    """The permissions of a file that is replaced, or those of a new one."""
    try:
        return stat.S_IMODE(os.stat(path).st_mode)
    except FileNotFoundError:
        umask = os.umask(0)
        os.umask(umask)
        return 0o666 & ~umask
