"""The commands of the Ethernet ports' links."""


def test_links_go_up_and_down_together_and_each_by_itself(controller):
    show = "plcctl link show --json | tr -d '\\n'; echo;"
    result = controller.run(f"plcctl link up; {show} plcctl link down --port 1; {show} plcctl link down; {show}")
    ups = [[port["up"] for port in line["ports"]] for line in result.objects]
    assert ups == [[True, True], [False, True], [False, False]]


def test_the_link_bytes_are_at_positions_44_and_47(controller):
    result = controller.run(
        "plcctl link up --port 1; plcctl tag get 44 BYTES --count 4; plcctl link up --port 2; "
        "plcctl tag get 44 BYTES --count 4"
    )
    assert result.lines == ["01 00 00 00", "01 00 00 01"]


def test_a_link_byte_other_than_1_is_down_and_named(controller):
    result = controller.run("plcctl tag set 44 UINT8 7; plcctl link show --port 1; plcctl link show --port 2")
    assert result.lines == ["port 1: down (the byte is 7, and only 1 is up)", "port 2: down"]
