# SPDX-License-Identifier: Apache-2.0
complete -c vekgpu-exporter -f
complete -c vekgpu-exporter -l listen -x -d 'where to listen'
complete -c vekgpu-exporter -l deadline -x -d 'how long a GPU may take, in seconds'
complete -c vekgpu-exporter -l processes -x -a '0 1 2 3 4 5' -d 'series for the largest processes'
complete -c vekgpu-exporter -l web-config -r -F -d 'TLS, client certificates and users'
complete -c vekgpu-exporter -l units -r -F -d 'the units that the driver counts in'
complete -c vekgpu-exporter -l once -d 'print the metrics and exit'
complete -c vekgpu-exporter -s h -l help -d 'a summary of the options'
complete -c vekgpu-exporter -l version -d 'the version'
