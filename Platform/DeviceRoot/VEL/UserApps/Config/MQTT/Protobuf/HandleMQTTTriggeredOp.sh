#!/bin/sh
# Runs an operation that the control application asked for.
#   url NAME   leaves the address of an exported file in the result file and prints 0
#   check      prints 1: nothing to hand back
# Anything else prints "failed". The zero byte ends the text in the tag, which keeps what stands behind it.
result=/tmp/HandleMQTTTriggeredOp_URL.txt
rm -f "$result"
if [ "$1" = url ] && [ -n "$2" ] && printf 'http://controller/export/%s\0' "$2" >"$result"; then
    echo 0
elif [ "$1" = check ]; then
    echo 1
else
    echo failed
fi
