# SPDX-License-Identifier: Apache-2.0
# fish completion for veksmi; the client itself tells what fits.

complete -c veksmi -f -k -a '(command veksmi --complete (commandline -opc)[2..-1] (commandline -ct) 2>/dev/null)'
