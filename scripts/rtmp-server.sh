#!/bin/bash
# An RTMP server on this machine that records what it receives, to try streaming with:
#
#   scripts/rtmp-server.sh FOLDER [PORT]     PORT: 1935 unless given
#
# A stream sent to rtmp://127.0.0.1:PORT/live/NAME is recorded as FOLDER/NAME.flv. It is Debian's nginx with its RTMP
# module; it keeps all its files in FOLDER and runs in the foreground, with the rights of who starts it, until Ctrl-C.
set -euo pipefail

(($# == 1 || $# == 2)) || { echo "usage: rtmp-server.sh FOLDER [PORT]" >&2; exit 2; }
port=${2:-1935}
"$(dirname "${BASH_SOURCE[0]}")/packages.sh" servers
mkdir -p "$1"
folder=$(cd "$1" && pwd)

# Quotes let the folder's name have blanks. Not one line of it concerns a web server.
cat > "$folder/nginx.conf" << END
daemon off;
master_process off;
pid "$folder/nginx.pid";
error_log "$folder/nginx.log" notice;
load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;
events {}
rtmp {
  server {
    listen 127.0.0.1:$port;
    application live {
      live on;
      record all;
      record_path "$folder";
    }
  }
}
END
echo "send streams to rtmp://127.0.0.1:$port/live/NAME; they are recorded as $folder/NAME.flv; Ctrl-C ends"
exec /usr/sbin/nginx -e "$folder/nginx.log" -p "$folder" -c "$folder/nginx.conf"
