#!/bin/sh
# Prints the MAC address of the first Ethernet port.
if [ "$*" != "Get Ac" ]; then
    echo "usage: ManageMac.sh Get Ac" >&2
    exit 2
fi
echo "02:00:5E:10:00:01"
