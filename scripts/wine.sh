#!/bin/sh
# Runs a Windows program: scripts/wine.sh PROGRAM ARGUMENT...
# Its folder is WINEPREFIX. Wine itself says no more than why a program could not be started.
# With addresses chosen at random about one start in 3,000 fails: the loader's heap then lies where Windows programs have
# the page they share with the system.
export WINEDEBUG="${WINEDEBUG:--all,err+virtual}"
loader=/usr/lib/wine/wine64
[ -x "$loader" ] || loader=wine
if setarch -R true 2>/dev/null; then
  exec setarch -R "$loader" "$@"
fi
exec "$loader" "$@"
