"""The rows of the benchmark: what both programs do, and what the figures of one pair of runs come to."""

from collections.abc import Callable
from dataclasses import dataclass

from plant import Plant

SCHEDULER_SLEEP = 1.0  # seconds that the service sleeps by design before its timers start


@dataclass(frozen=True)
class Metric:
    """One figure. The ratio of product to bare is held against the target, or the product's own figure is."""

    title: str
    unit: str
    value: Callable[[dict], float]
    target: float | None = None  # None: for information
    at_least: bool = False  # the target is a lower bound
    absolute: bool = False  # the target is for the product's figure, whatever the bare program's is
    product_value: Callable[[dict], float] | None = None  # where the product's figure is formed in another way

    def of_product(self, run: dict) -> float:
        return (self.product_value or self.value)(run)

    def met(self, figure: float) -> bool | None:
        if self.target is None:
            return None
        return figure >= self.target if self.at_least else figure <= self.target


@dataclass(frozen=True)
class Row:
    name: str
    plant: Plant
    metrics: list[Metric]
    bare_loop: bool = False  # the bare program publishes as fast as acknowledgements come, without timers
    start_up_only: bool = False


def processor_microseconds(run: dict) -> float:
    return run["processor_ns"] / run["sent"] / 1000


def ticks_lost(run: dict) -> float:
    return max(0, run["expected"] - run["sent"])


def ticks_lost_percent(run: dict) -> float:
    return 100 * ticks_lost(run) / run["expected"]


def message_rate(run: dict) -> float:
    return run["sent"] / run["window_seconds"]


def start_up(run: dict) -> float:
    return run["start_up_seconds"]


def start_up_net(run: dict) -> float:
    return run["start_up_seconds"] - SCHEDULER_SLEEP


def periodic(rate: int) -> Row:
    return Row(
        name=f"periodic-{rate}",
        plant=Plant(brokers=1, publications=300, interval=1000 // rate, qos=0),
        metrics=[
            Metric(f"300 publications x {rate}/s, QoS 0: CPU per message", "us", processor_microseconds, 1.15),
            Metric(f"300 publications x {rate}/s, QoS 0: ticks lost", "", ticks_lost, 0, absolute=True),
        ],
    )


def start_up_row(clock_check: bool) -> Row:
    plant = Plant(brokers=30, publications=300, interval=600_000, qos=0, clock_check=clock_check)
    if not clock_check:
        title = "the same without the device's clock check script"
        metrics = [Metric(title, "s", start_up, product_value=start_up_net)]
        return Row("start-up-no-script", plant, metrics, start_up_only=True)
    return Row(
        name="start-up",
        plant=plant,
        metrics=[
            Metric("start-up net of the specified sleep, 30 brokers, 300 publications", "s", start_up, 1.05,
                   product_value=start_up_net),
            Metric("resident memory at that size", "KiB", lambda run: run["resident_kib"], 1.5),
            Metric("proportional memory at that size", "KiB", lambda run: run["proportional_kib"]),
        ],
        start_up_only=True,
    )


ROWS = [
    periodic(10),
    periodic(100),
    Row(
        name="acknowledged",
        plant=Plant(brokers=1, publications=30, interval=1000, qos=1),
        metrics=[
            Metric("30 publications x 1/s, QoS 1, one broker: ticks lost", "%", ticks_lost_percent, 0, absolute=True)
        ],
    ),
    Row(
        name="saturated",
        plant=Plant(brokers=1, publications=1, interval=0, qos=1),
        metrics=[Metric("saturated QoS 1, one broker: messages per second", "/s", message_rate, 0.5, at_least=True)],
        bare_loop=True,
    ),
    start_up_row(clock_check=True),
    start_up_row(clock_check=False),
]
