"""Runs one program once, in a sandbox of its own, and hands back what the observer measured."""

import json
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

import plant as configuration
from plant import Plant

HERE = Path(__file__).resolve().parent
REPOSITORY = HERE.parent
SANDBOX = REPOSITORY / "scripts/sandbox"
DEFAULT_BUILD = REPOSITORY / "build/release"
PYTHON = "/usr/bin/python3"
RESULTS = "/results"  # inside the sandbox


class BenchmarkError(Exception):
    """A run that did not get to its end; the text is for people."""


@dataclass(frozen=True)
class Build:
    """The programs under test."""

    directory: Path

    def product(self) -> Path:
        return self.directory / "bin/MQTTClientManager"

    def bare(self) -> Path:
        return self.directory / "bin/bench_bare"

    def observer(self) -> Path:
        return self.directory / "bin/bench_observer"

    def require(self) -> None:
        for program in (self.product(), self.bare(), self.observer()):
            if not program.exists():
                raise BenchmarkError(
                    f"{program} is missing; build it with: cmake --preset release && cmake --build --preset release"
                )


@dataclass(frozen=True)
class Timing:
    """How long to look, in seconds. Without a window only the start-up and the memory are measured."""

    warm_up: float
    window: float
    patience: float = 60


def observer_command(build: Build, plant: Plant, timing: Timing, mark: str) -> list[str]:
    return [
        str(build.observer()),
        f"--general={configuration.GENERAL_ADDRESS}",
        f"--statistics={configuration.STATISTICS_ADDRESS}",
        f"--data={configuration.DATA_ADDRESS}",
        f"--data-size={plant.publications * plant.size}",
        f"--publications={plant.publications}",
        f"--interval={plant.interval}",
        f"--warm-up={timing.warm_up}",
        f"--window={timing.window}",
        f"--patience={timing.patience}",
        *([f"--mark={mark}"] if mark else []),
        "--",
    ]


def run_once(build: Build, plant: Plant, timing: Timing, command: list[str], mark: str = "",
             results: Path | None = None) -> dict:
    """Runs `command` as the process under test. `mark` and `results` serve profilers: a command for either end of the
    window, and the directory that the sandbox shows as RESULTS."""
    with tempfile.TemporaryDirectory(prefix="bench-") as directory:
        device = Path(directory) / "device"
        configuration.write(plant, device)
        binds = ["--bind", str(build.directory), str(build.directory)]
        if results:
            binds += ["--bind", str(results), RESULTS]
        run = subprocess.run(
            [str(SANDBOX), *binds, str(device), "--", PYTHON, "-B", str(HERE / "inside.py"),
             *observer_command(build, plant, timing, mark), *command],
            cwd=REPOSITORY, capture_output=True, text=True, check=False,
        )
    if run.returncode != 0:
        raise BenchmarkError(f"{Path(command[-1]).name}: {run.stderr.strip() or f'status {run.returncode}'}")
    return json.loads(run.stdout)


def run_product(build: Build, plant: Plant, timing: Timing) -> dict:
    return run_once(build, plant, timing, [str(build.product())])


def run_bare(build: Build, plant: Plant, timing: Timing, loop: bool = False) -> dict:
    return run_once(build, plant, timing, [str(build.bare()), *plant.bare_arguments(loop)])
