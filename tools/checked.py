# SPDX-License-Identifier: Apache-2.0
"""Remembers which files passed a slow check, by content, so that tools/lint and tools/tidy repeat it only for what changed.

Like a compiler cache it lives beside the user's other caches and serves every checkout on the machine.
"""

import concurrent.futures
import hashlib
import os
import re
import subprocess
import time
from functools import lru_cache
from pathlib import Path
from typing import Callable

QUOTED_INCLUDE = re.compile(r'^[ \t]*#[ \t]*(?:include|import)[ \t]*"([^"\n]+)"', re.MULTILINE)
KEPT = 30 * 24 * 3600  # s since last use


class Checked:
    """What passed one check. `settings` is whatever else its outcome depends on: tool version, flags, configuration."""

    def __init__(self, root: Path, name: str, settings: str) -> None:
        self.root = root
        self.settings = settings
        caches = os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache"
        self.folder = Path(caches) / "meridal" / name
        self.read = lru_cache(maxsize=None)(self._read)

    def run(self, paths: list[str], check: Callable[[str], str | None]) -> dict[str, str]:
        """Checks all files that have not passed as they are, several at a time. Returns what is wrong, by file."""
        self.folder.mkdir(parents=True, exist_ok=True)
        marks = {path: self.folder / self.key(path) for path in paths}
        todo = [path for path, mark in marks.items() if not mark.exists()]
        wrong = {}
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for path, problem in zip(todo, pool.map(check, todo)):
                if problem:
                    wrong[path] = problem
        for path, mark in marks.items():
            if path not in wrong:
                mark.touch()
        self.forget_old()
        return wrong

    def key(self, path: str) -> str:
        """Changes with the file and with every header of the tree that it includes, however indirectly."""
        digest = hashlib.sha256(f"{self.settings}\0{path}\0".encode())
        for each in sorted(self.seen_by(path, set())):
            digest.update(f"{each}\0{self.read(each)}\0".encode())
        return digest.hexdigest()

    def seen_by(self, path: str, seen: set[str]) -> set[str]:
        if path not in seen and (self.root / path).is_file():
            seen.add(path)
            for included in QUOTED_INCLUDE.findall(self.read(path)):
                self.seen_by(included, seen)
        return seen

    def forget_old(self) -> None:
        oldest = time.time() - KEPT
        for mark in self.folder.iterdir():
            if mark.stat().st_mtime < oldest:
                mark.unlink(missing_ok=True)

    def _read(self, path: str) -> str:
        return (self.root / path).read_text(encoding="utf-8", errors="replace")


def version(command: str) -> str:
    return subprocess.run([command, "--version"], capture_output=True, text=True, check=True).stdout
