#!/bin/bash
# An engine that accepts connections on ENGINE_PORT until it is stopped.
app_dir="$2"
echo "args=$* host=${ENGINE_HOST-unset} port=${ENGINE_PORT-unset}" >>"$app_dir/launches"
python3 -c '
import socket, sys
s = socket.socket()
s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", int(sys.argv[1])))
s.listen(8)
print("engine: listening", flush=True)
while True:
    c, _ = s.accept()
    c.close()
' "${ENGINE_PORT:-8765}" &
echo "$$ $!" >>"$app_dir/pids"
wait
