#!/usr/bin/env bash
# A client of a host: prints the paths of its objects, then what is added and removed. Only root may
# monitor the system bus.
#
#     client.sh [SERVICE [ROOT]]
set -euo pipefail

service=${1:-com.orvane.velmar.inventory}
root=${2:-/com/orvane/velmar}
manager=org.freedesktop.DBus.ObjectManager

# The list follows when the monitor has begun, so that nothing is missed between the two.
busctl monitor --match \
    "type='signal',sender='$service',path='$root',interface='$manager'" 2>&1 |
    while read -r line; do
        case $line in
        Monitoring*)
            busctl --json=short call "$service" "$root" "$manager" GetManagedObjects |
                sed 's/":{/\n/g' | sed -n 's/.*"\(\/[^"]*\)$/found \1/p'
            ;;
        *' Member=Interfaces'*)
            what=${line##*Interfaces}
            ;;
        'OBJECT_PATH "'*)
            path=${line#*\"}
            echo "${what,,} ${path%%\"*}"
            ;;
        esac
    done
