# Completion of record-audio for fish.

set -l exclusive "not __fish_seen_argument -l stop -l cancel -l status -l recover -l help -l version"
complete -c record-audio -n $exclusive -f -l stop -d "End the running recording and save it"
complete -c record-audio -n $exclusive -f -l cancel -d "End the running recording and delete its file"
complete -c record-audio -n $exclusive -f -l status -d "Print what the running program does"
complete -c record-audio -n $exclusive -f -l recover -d "Save the recordings of programs that were killed"
complete -c record-audio -n $exclusive -f -l help -d "Print a summary of the options"
complete -c record-audio -n $exclusive -f -l version -d "Print the version"
