# SPDX-License-Identifier: Apache-2.0
"""setuptools' own build backend, from where the system has it.

pip builds in an environment of its own, into which it would fetch setuptools and wheel from the network; those that
Debian installed (python3-setuptools, python3-wheel) do as well.
"""
from __future__ import annotations

import site
import sys
from typing import List

sys.path += [path for path in site.getsitepackages([sys.base_prefix, sys.prefix]) if path not in sys.path]

from setuptools import build_meta  # type: ignore[import]  # noqa: E402

build_wheel = build_meta.build_wheel
build_sdist = build_meta.build_sdist
prepare_metadata_for_build_wheel = build_meta.prepare_metadata_for_build_wheel


def get_requires_for_build_wheel(config_settings: object = None) -> List[str]:
    """Nothing beside what is installed."""
    return []


get_requires_for_build_sdist = get_requires_for_build_wheel
