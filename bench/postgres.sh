# A PostgreSQL server for the time of one script, which sources this file.
#
#   find_postgres         sets `postgres`, the folder of the newest server's programs; false without one
#   start_server FOLDER   makes FOLDER, whose parent others may enter, and starts a server with everything in it: a free
#                         port of 127.0.0.1, no root, a superuser and a database called bench, no password. Sets `port`;
#                         false when the server does not start
#   stop_server           ends it and waits for its end; nothing without a server

server=
port=
postgres=

find_postgres() {
  postgres=$(printf '%s\n' /usr/lib/postgresql/*/bin | sort -V | tail -n 1)
  [[ -x $postgres/postgres ]]
}

start_server() {
  local folder=$1 as_user=()
  mkdir "$folder"
  # The server refuses to run as root.
  if (($(id -u) == 0)); then
    as_user=(setpriv --reuid=postgres --regid=postgres --clear-groups env -C / HOME=/)
    chown postgres: "$folder"
  fi
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  "${as_user[@]}" "$postgres/initdb" -D "$folder/data" -U bench -A trust -E UTF8 --locale=C >/dev/null || return
  "${as_user[@]}" "$postgres/postgres" -D "$folder/data" -p "$port" -k "$folder" \
    -c listen_addresses=127.0.0.1 -c logging_collector=off >"$folder.log" 2>&1 &
  server=$!
  local i
  for ((i = 0; i < 100; ++i)); do
    "$postgres/pg_isready" -q -h 127.0.0.1 -p "$port" && break
    kill -0 "$server" 2>/dev/null || { cat "$folder.log" >&2; return 1; }
    sleep 0.1
  done
  "$postgres/createdb" -h 127.0.0.1 -p "$port" -U bench bench
}

stop_server() {
  [[ -n $server ]] || return 0
  kill -INT "$server" 2>/dev/null || true
  wait "$server" 2>/dev/null || true
  server=
}
