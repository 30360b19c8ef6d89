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
    return run["processor_ns"] / run["messages"] / 1000


def ticks_lost(run: dict) -> float:
    return max(0, run["expected"] - run["messages"])


def ticks_lost_percent(run: dict) -> float:
    return 100 * ticks_lost(run) / run["expected"]


def message_rate(run: dict) -> float:
    return run["messages"] / run["window_seconds"]


def start_up(run: dict) -> float:
    return run["start_up_seconds"]


def start_up_net(run: dict) -> float:
    return run["start_up_seconds"] - SCHEDULER_SLEEP


def receiving(name: str, title: str, plant: Plant, target: float) -> Row:
    return Row(name, plant, [Metric(f"{title}: CPU per message", "us", processor_microseconds, target)])


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


RAW = Plant(subscriptions=1)
RAW_EXACT = Plant(subscriptions=300)
RAW_WILDCARDS = Plant(subscriptions=300, wildcards=True)
JSON_IN = Plant(subscriptions=1, json=True)

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
    receiving("receive-raw", "receive raw 64 bytes, 1 subscription", RAW, 1.10),
    receiving("receive-exact", "receive raw 64 bytes, 300 exact filters", RAW_EXACT, 1.15),
    receiving("receive-wildcards", "receive raw 64 bytes, 300 wildcard filters", RAW_WILDCARDS, 1.30),
    receiving("receive-json", "receive a JSON struct of 10 members", JSON_IN, 1.10),
    Row(
        name="publish-json",
        plant=Plant(publications=300, interval=100, json=True),
        metrics=[
            Metric("publish a JSON struct of 10 members, 300 x 10/s, QoS 0: CPU per message", "us",
                   processor_microseconds, 1.20)
        ],
    ),
    start_up_row(clock_check=True),
    start_up_row(clock_check=False),
]


@dataclass(frozen=True)
class InstructionRow:
    name: str
    title: str
    plant: Plant
    target: float | None


ROUNDS = 3000  # milliseconds between two rounds; a round under callgrind and the dump behind it fit in

INSTRUCTION_ROWS = [
    InstructionRow("publish-raw", "instructions per published message, QoS 0, 64 bytes",
                   Plant(publications=300, interval=ROUNDS), 1.10),
    InstructionRow("publish-json", "the same, a JSON struct of 10 members",
                   Plant(publications=300, interval=ROUNDS, json=True), 1.15),
    InstructionRow("receive-raw", "instructions per arrival, raw 64 bytes, 1 subscription", RAW, 1.5),
    InstructionRow("receive-exact", "the same, 300 exact filters", RAW_EXACT, 1.5),
    InstructionRow("receive-wildcards", "the same, 300 wildcard filters", RAW_WILDCARDS, 2.0),
    InstructionRow("receive-json", "instructions per arrival, a JSON struct of 10 members", JSON_IN, None),
]
