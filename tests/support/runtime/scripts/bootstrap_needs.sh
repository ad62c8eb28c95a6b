#!/bin/bash
# Stops for a missing prerequisite.
echo "PROGRESS 5 Checking this machine"
echo "NEED xcode-clt Install the command line tools first"
echo "STEP mac fail"
exit 2
