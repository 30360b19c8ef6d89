"""Runs one program once, in a sandbox of its own, and hands back what the observer measured."""

import json
import struct
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

    def sender(self) -> Path:
        return self.directory / "bin/bench_sender"

    def require(self) -> None:
        for program in (self.product(), self.bare(), self.observer(), self.sender()):
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


@dataclass(frozen=True)
class Load:
    """What is sent to a plant that has subscriptions: a stream, or bursts as fast as they go."""

    rate: int = 2000  # messages per second
    burst: int = 0  # messages; instead of the stream, one burst to warm up and one to measure

    def command(self, build: Build) -> str:
        pace = f"--count={self.burst}" if self.burst else f"--rate={self.rate}"
        return (f"{build.sender()} --port={configuration.PORT} --topics={configuration.TOPICS_FILE}"
                f" --payload={configuration.PAYLOAD_FILE} {pace}")


def observer_command(build: Build, plant: Plant, timing: Timing, load: Load, mark: str) -> list[str]:
    command = [
        str(build.observer()),
        f"--general={configuration.GENERAL_ADDRESS}",
        f"--statistics={configuration.STATISTICS_ADDRESS}",
        f"--data={configuration.DATA_ADDRESS}",
        f"--data-file={configuration.TAGS_FILE}",
        f"--tag-size={plant.size()}",
        f"--publications={plant.publications}",
        f"--interval={plant.interval}",
        f"--warm-up={timing.warm_up}",
        f"--window={timing.window}",
        f"--patience={timing.patience}",
    ]
    if plant.subscriptions:
        command += [f"--records={configuration.RECORDS_ADDRESS}", f"--sender={load.command(build)}",
                    f"--burst={load.burst}"]
    if mark:
        command.append(f"--mark={mark}")
    return [*command, "--"]


def run_once(build: Build, plant: Plant, timing: Timing, command: list[str], load: Load = Load(), mark: str = "",
             results: Path | None = None) -> dict:
    """Runs `command` as the process under test. `mark` and `results` serve profilers: a command for either end of the
    window, and the directory that the sandbox shows as RESULTS."""
    listen = [f"--listen={configuration.publication_topic(1)}"] if plant.publications and timing.window else []
    with tempfile.TemporaryDirectory(prefix="bench-") as directory:
        device = Path(directory) / "device"
        configuration.write(plant, device)
        binds = ["--bind", str(build.directory), str(build.directory)]
        if results:
            binds += ["--bind", str(results), RESULTS]
        run = subprocess.run(
            [str(SANDBOX), *binds, str(device), "--", PYTHON, "-B", str(HERE / "inside.py"), *listen, "--",
             *observer_command(build, plant, timing, load, mark), *command],
            cwd=REPOSITORY, capture_output=True, text=True, check=False,
        )
    name = next(Path(word).name for word in command if Path(word).parent == build.product().parent)
    if run.returncode != 0:
        raise BenchmarkError(f"{name}: {run.stderr.strip() or f'status {run.returncode}'}")
    outcome = json.loads(run.stdout)
    if timing.window:
        verify(plant, load, outcome, name)
    return outcome


def verify(plant: Plant, load: Load, run: dict, name: str) -> None:
    """A program that did not do its work is no measure of the work."""
    if run["messages"] == 0:
        raise BenchmarkError(f"{name}: no message was counted in the window")
    if plant.publications and run["published"] != plant.payload().hex():
        raise BenchmarkError(f"{name}: published {run['published'] or 'nothing'} in place of {plant.payload().hex()}")
    if not plant.subscriptions:
        return
    if run["tag"] != plant.tag().hex():
        raise BenchmarkError(f"{name}: the tag holds {run['tag']} in place of {plant.tag().hex()}")
    verify_record(bytes.fromhex(run["record"]), configuration.subscription_topic(1, plant), name)
    if not load.burst and run["messages"] < 0.9 * load.rate * run["window_seconds"]:
        raise BenchmarkError(f"{name}: took only {run['messages']} messages in {run['window_seconds']:.1f} s")


def verify_record(record: bytes, topic: str, name: str) -> None:
    subscribed, status, received, queue_full, text, utc, buffered = struct.unpack("<BbBB512sIB3x", record)
    topic_units = f"{topic}\0".encode("utf-16-le")
    if (subscribed, status, received, queue_full, buffered) != (1, 0, 1, 0, 0) or not text.startswith(topic_units):
        raise BenchmarkError(f"{name}: the status record holds {record.hex()}")
    if utc == 0:
        raise BenchmarkError(f"{name}: the status record has no time")


def run_product(build: Build, plant: Plant, timing: Timing) -> dict:
    return run_once(build, plant, timing, [str(build.product())])


def run_bare(build: Build, plant: Plant, timing: Timing, loop: bool = False) -> dict:
    return run_once(build, plant, timing, [str(build.bare()), *plant.bare_arguments(loop)])
