#!/bin/bash
# Runs a compiler or linker with paths below the source folder made relative to the build folder, in which it is called:
# relative_paths.sh SOURCE_FOLDER COMMAND... Symbol files keep the command lines that made them, and so would differ
# between two folders.
source=$1
shift
here=$(realpath --relative-to=. "$source")
exec "${@//$source/$here}"
