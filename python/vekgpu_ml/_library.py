# SPDX-License-Identifier: Apache-2.0
"""Finds the shared library, and in it what is asked for."""
from __future__ import annotations

import os
from ctypes import CDLL
from typing import Any, Callable, Optional

from .errors import FunctionMissingError, LibraryUnavailableError

SONAME = "libvekgpu-ml.so.1"
PATH_VARIABLE = "VEKGPU_ML_LIBRARY"

_library: Optional[CDLL] = None


def library() -> CDLL:
    """The shared library: the file that VEKGPU_ML_LIBRARY names, else the installed one. Loaded when first used."""
    global _library
    if _library is None:
        name = os.environ.get(PATH_VARIABLE) or SONAME
        try:
            _library = CDLL(name)
        except OSError as error:
            raise LibraryUnavailableError(
                f"the library cannot be loaded: {error}; install {SONAME}, which is Debian's libvekgpu-ml1, or "
                f"let {PATH_VARIABLE} name the file"
            ) from None
    return _library


def _missing(name: str) -> FunctionMissingError:
    return FunctionMissingError(f"the installed library has no {name}: it is older than that; upgrade libvekgpu-ml1")


class Function:
    """A function of the library, looked up in it when first called."""

    def __init__(self, name: str, doc: str, restype: Any, /, **argtypes: Any) -> None:
        self.__name__ = name
        self.__doc__ = doc
        self.restype = restype
        self.argtypes = argtypes  # by the arguments' names, in their order
        self._found: Optional[Callable[..., Any]] = None

    def __call__(self, *arguments: Any) -> Any:
        return (self._found or self.found())(*arguments)

    def __repr__(self) -> str:
        return f"<{self.__name__}({', '.join(self.argtypes)}) of {SONAME}>"

    def found(self) -> Callable[..., Any]:
        """The bare ctypes function; raises FunctionMissingError where the library is older than it."""
        if self._found is None:
            try:
                found = getattr(library(), self.__name__)
            except AttributeError:
                raise _missing(self.__name__) from None
            found.restype = self.restype
            found.argtypes = list(self.argtypes.values())
            self._found = found
        return self._found


class Data:
    """A variable of the library, looked up in it when first read."""

    def __init__(self, name: str, doc: str, kind: Any) -> None:
        self.__name__ = name
        self.__doc__ = doc
        self.kind = kind

    def __repr__(self) -> str:
        return f"<{self.__name__} of {SONAME}>"

    @property
    def value(self) -> Any:
        """The variable itself, not a copy."""
        try:
            return self.kind.in_dll(library(), self.__name__)
        except ValueError:
            raise _missing(self.__name__) from None
