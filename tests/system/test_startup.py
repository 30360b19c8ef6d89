"""What a start does, in which order, and what then stands in tag memory."""

from support import configuration, csvlog, records
from support.device import VERBOSE
from support.records import BrokerStatus
from support.waiting import holds_for, wait_until


def general_history(device):
    return [records.General.decode(write.data) for write in device.tags.journal(configuration.GENERAL_AT)]


def test_process_status_goes_from_starting_to_running(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.run()
    assert [general.status for general in general_history(device)] == [records.STARTING, records.RUNNING]


def test_general_record_counts_the_configured_entities(device):
    device.configure(
        brokers=[configuration.broker(1, AutoConnect=0), configuration.broker(2, AutoConnect=0)],
        publications=[configuration.publication(n) for n in (1, 2, 3)],
        subscriptions=[configuration.subscription(n) for n in (1, 2, 3, 4)],
    )
    device.run()
    assert device.general() == records.General(records.RUNNING, 2, 3, 4, 0)


def test_no_publications_are_no_failure(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)], publications=[])
    device.run()
    assert device.general().publications == 0


def test_statistics_are_not_written_before_there_is_something_to_count(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.tags.write(configuration.STATISTICS_AT, b"\xaa" * records.Statistics.SIZE)
    device.run()
    assert device.tags.journal(configuration.STATISTICS_AT) == []
    assert device.tags.read(configuration.STATISTICS_AT, records.Statistics.SIZE) == b"\xaa" * records.Statistics.SIZE


def test_records_are_written_in_the_order_of_the_start(device, scripted):
    scripted()
    device.configure()
    device.tags.write(configuration.broker_at(1), b"\xff\xff\xff\xff")
    device.run()
    wait_until(lambda: len(general_history(device)) == 2, "the status of a running process")
    begins = {configuration.GENERAL_AT: "general", configuration.broker_at(1): "broker"}
    written = [(begins[write.position], tuple(write.data)) for write in device.tags.journal()]
    starting, running = ((status, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0) for status in (records.STARTING, records.RUNNING))
    nothing, connected = (0, 0, 0, 0), (1, 0, 0, 0)
    assert written == [
        ("broker", nothing),  # its client was created
        ("broker", nothing),  # its record was cleared
        ("general", starting),
        ("broker", connected),
        ("general", running),
    ]


def test_steps_of_the_start_follow_each_other_in_order(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.run(*VERBOSE)
    fired = [row.function for row in csvlog.rows() if row.message.strip() == "FIRED"]
    assert fired == [
        f"MQTTClientManager::{step}"
        for step in (
            "Initilize",
            "ManageTagsRegistration",
            "ManageClientBrokers",
            "ManageSubscriptions",
            "ManagePeriodicPublications",
            "CheckSystemTime",
        )
    ]
    wait_until(lambda: csvlog.has_message("Start Forever"), "the request thread")
    for line in (
        "    Configuration files parsed successfully",
        "    MQTTClient creation done successfully",
        f"{'#' * 25} Start Forever reading loop of MQTT requstes {'#' * 25}",
    ):
        assert line in csvlog.messages("DEBUG")


def test_addresses_of_the_records_come_from_the_general_file(device, mosquitto):
    mosquitto()
    device.configure(publications=[configuration.publication(PeriodicInterval=20)], general=0x7000, statistics=0x7100)
    device.start()
    wait_until(lambda: device.tags.general(0x7000).status == records.RUNNING, "the general record", timeout=20)
    wait_until(lambda: device.tags.statistics(0x7100).sent > 0, "the statistics record")


def test_general_element_without_an_address_means_address_0(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)], general=None)
    device.start()
    wait_until(lambda: device.tags.general(0) == (records.RUNNING, 1, 0, 0, 0), "the record at 0", timeout=20)


def test_addresses_that_are_no_numbers_mean_0(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)], general="0x400")
    device.start()
    wait_until(lambda: device.tags.general(0).status == records.RUNNING, "the record at 0", timeout=20)


def test_brokers_connect_before_the_process_counts_as_running(device, scripted):
    broker = scripted()
    broker.silent = True
    device.configure()
    device.start()
    wait_until(lambda: broker.connections, "the first attempt")
    holds_for(lambda: device.status() == records.STARTING, "the start waits for the attempt", 2)


def test_one_broker_out_of_reach_does_not_keep_the_others_from_connecting(device, mosquitto):
    mosquitto()
    ports = {1: 4, 2: 1883, 3: 5}
    device.configure(brokers=[configuration.broker(number, Port=port) for number, port in ports.items()])
    device.run()
    assert device.broker(1) == BrokerStatus(0, 0, -1)
    assert device.broker(2) == BrokerStatus(1, 0, 0)
    assert device.broker(3) == BrokerStatus(0, 0, -1)


def test_without_arguments_only_what_must_show_is_logged(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.run()
    assert [row for row in csvlog.rows() if row.severity in ("DEBUG", "VERB")] == []


def test_verbose_argument_logs_how_the_client_library_is_traced(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.run(*VERBOSE)
    hints = [row.message for row in csvlog.rows() if row.function == "MQTTClientManager::SetVerboseMode"]
    assert len(hints) == 5
    assert hints[0] == hints[4] == "##########################"
    assert "trac" in hints[1]
    assert hints[2:4] == ["   export MQTT_C_CLIENT_TRACE=ON", "   export MQTT_C_CLIENT_TRACE_LEVEL=PROTOCOL"]


def test_debug_lines_need_both_words_in_their_places(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    for words in ("-verbose", "-verbose false", "x true", "true -verbose", "-verbose truer", "-verboser true"):
        arguments = words.split()
        service = device.run(*arguments)
        service.kill()
        assert [row for row in csvlog.rows() if row.severity == "DEBUG"] == [], arguments
        device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))


def test_words_behind_the_fixed_positions_have_no_effect(device):
    device.configure(brokers=[configuration.broker(AutoConnect=0)])
    device.run(*VERBOSE, "x", "false", "true", "-verbose")
    assert csvlog.has_message("FIRED", severity="DEBUG")


def test_configuration_files_are_left_as_they_are(device):
    # A client identifier that the service makes up isn't written back either.
    brokers = [configuration.broker(AutoConnect=0, ClientID=None)]
    device.configure(brokers=brokers, publications=[configuration.publication()])
    before = {file.name: file.read_bytes() for file in configuration.DIRECTORY.iterdir()}
    device.run().stop()
    assert {file.name: file.read_bytes() for file in configuration.DIRECTORY.iterdir()} == before


def test_start_follows_an_earlier_one_in_the_same_tag_memory(device, mosquitto):
    mosquitto()
    device.configure()
    device.run().stop()
    device.tags.write(configuration.GENERAL_AT, bytes(records.General.SIZE))
    device.run()
    assert device.broker() == BrokerStatus(1, 0, 0)


def test_idle_service_takes_hardly_any_processor_time(device, mosquitto):
    mosquitto()
    device.configure(publications=[configuration.publication(PeriodicInterval=-1)])
    service = device.run()
    before = service.processor_seconds()
    holds_for(lambda: not service.has_ended(), "the service", 3)
    assert service.processor_seconds() - before < 0.6
