#!/bin/sh
# An application in shell that says when it is ready, what it does, that it lives, and when it stops. It needs socat,
# which sends one datagram to the address in NOTIFY_SOCKET:
#
#     echo READY=1 | socat -u - UNIX-SENDTO:"$NOTIFY_SOCKET"
set -eu

tell() { printf '%s\n' "$@" | socat -u - UNIX-SENDTO:"$NOTIFY_SOCKET" || echo "nobody heard: $*" >&2; }

# Waits, but for a signal no longer than that.
pause() {
    sleep "$1" &
    wait $! || true
}

stop() {
    trap '' TERM INT
    tell STOPPING=1 'STATUS=going off watch'
    exit 0
}
trap stop TERM INT

tell 'STATUS=warming up'
pause "${SENTRY_WARM_UP:-0.2}"
tell READY=1 'STATUS=on watch'

# WATCHDOG_USEC: microseconds without a beat after which the heart counts as lost. Half of it is a good period.
half=$((${WATCHDOG_USEC:-2000000} / 2))
period=$(printf '%d.%06d' $((half / 1000000)) $((half % 1000000)))
while :; do
    tell WATCHDOG=1
    pause "$period"
done
