#!/bin/sh
# Prints 1 when the clock has been set, 0 when it still runs from the year it starts in without a battery.
if [ "$(date -u +%Y)" -ge 2020 ]; then
    echo 1
else
    echo 0
fi
