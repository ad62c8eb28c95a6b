#!/bin/bash
# Claims success but exits with status 1.
echo "STEP deps ok now"
echo "STEP nosuch ok"
echo "STEP uv fail"
echo "DONE"
exit 1
