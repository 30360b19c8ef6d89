#!/bin/sh
# Prints how often openssl says "Verify return code: 20" (the server's issuer is not in the CA file), so 0 when the CA
# file is right, or when something else is wrong.
# usage: OpenSslCheckConnectivity.sh HOST PORT CLIENT_CERTIFICATE CLIENT_KEY CA_FILE CONFIGURATION_DIRECTORY
if [ $# -ne 6 ]; then
    sed -n 's/^# usage/usage/p' "$0" >&2
    exit 2
fi
host=$1 port=$2 certificate=$3 key=$4 ca_file=$5
cd "$6" || exit 1

# Only the configured CA file counts, not the system's. Without that file every server has an unknown issuer.
# Stopping at the first error matters: a server that sends its own certificate alone ends with code 21 otherwise.
set -- -verify_return_error -no-CApath -no-CAstore
if [ -f "$ca_file" ]; then
    set -- "$@" -CAfile "$ca_file"
else
    set -- "$@" -no-CAfile
fi
if [ -f "$certificate" ] && [ -f "$key" ]; then
    set -- "$@" -cert "$certificate" -key "$key"
fi
# Well inside the 45 s that the caller waits.
timeout 20 openssl s_client "$@" -connect "$host:$port" </dev/null 2>&1 | grep -c 'Verify return code: 20'
