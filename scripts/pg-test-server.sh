#!/usr/bin/env bash
# A private PostgreSQL server for tests and benchmarks, listening only on a Unix socket in its own
# folder, started and stopped by its pid.
#
#   pg-test-server.sh start DIR [--fresh]   initdb into DIR/data (always with --fresh, else only when
#                                           there is none), start the server, print its URL
#   pg-test-server.sh stop DIR [--remove]   stop the server of DIR (and delete DIR)
#   pg-test-server.sh url DIR               print the URL of the server of DIR
#
# With ONDARO_PG_TCP_PORT set the server also listens on 127.0.0.1 at that port (the socket in DIR
# then carries that port too), and the URL printed is the TCP one.
#
# PostgreSQL refuses to run as root: as root the server runs as the "postgres" user that Debian's
# package creates (ONDARO_PG_USER to choose another), otherwise as the current user. The superuser and
# database are both named "ondaro"; local connections are trusted (the socket folder is private).
set -euo pipefail

command=${1:-}
dir=${2:-}
option=${3:-}
if [[ -z "$command" || -z "$dir" ]]; then
    sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//'
    exit 2
fi

bin=${ONDARO_PG_BIN:-}
if [[ -z "$bin" ]]; then
    bin=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1 || true)
fi
if [[ -z "$bin" || ! -x "$bin/postgres" ]]; then
    echo "pg-test-server: no PostgreSQL server found (install Debian's postgresql package)" >&2
    exit 1
fi

port=5432
listen=''
url="postgresql://ondaro@/ondaro?host=$dir"
if [[ -n "${ONDARO_PG_TCP_PORT:-}" ]]; then
    port=$ONDARO_PG_TCP_PORT
    listen=127.0.0.1
    url="postgresql://ondaro@127.0.0.1:$port/ondaro"
fi

# The command prefix that runs a program as the server's user (setpriv execs, so pids stay the same).
server_user=()
if [[ $(id -u) -eq 0 ]]; then
    user=${ONDARO_PG_USER:-postgres}
    server_user=(setpriv --reuid="$user" --regid="$(id -g "$user")" --init-groups --)
fi

is_running() {
    [[ -f "$dir/server.pid" ]] && kill -0 "$(cat "$dir/server.pid")" 2>/dev/null
}

start() {
    if is_running; then
        echo "$url"
        return 0
    fi
    if [[ "$option" == "--fresh" ]]; then
        rm -rf "$dir"
    fi
    mkdir -p "$dir"
    # Both the server's user and the tests' user reach the socket in this folder.
    chmod 0755 "$dir"
    if [[ $(id -u) -eq 0 ]]; then
        chown "${ONDARO_PG_USER:-postgres}" "$dir"
    fi
    local fresh=0
    if [[ ! -f "$dir/data/PG_VERSION" ]]; then
        fresh=1
        rm -rf "$dir/data"
        "${server_user[@]}" "$bin/initdb" -D "$dir/data" -U ondaro --auth=trust --encoding=UTF8 \
            --locale=C.UTF-8 -N >"$dir/initdb.log" 2>&1 || {
            echo "pg-test-server: initdb failed:" >&2
            cat "$dir/initdb.log" >&2
            exit 1
        }
    fi
    # A test server keeps nothing worth an fsync.
    setsid "${server_user[@]}" "$bin/postgres" -D "$dir/data" -k "$dir" -p "$port" -c listen_addresses="$listen" \
        -c unix_socket_permissions=0777 -c fsync=off -c synchronous_commit=off -c full_page_writes=off \
        </dev/null >>"$dir/server.log" 2>&1 &
    echo $! >"$dir/server.pid"
    for _ in $(seq 300); do
        if "$bin/pg_isready" -q -h "$dir" -p "$port"; then
            break
        fi
        if ! is_running; then
            break
        fi
        sleep 0.1
    done
    if ! "$bin/pg_isready" -q -h "$dir" -p "$port"; then
        echo "pg-test-server: the server did not start:" >&2
        tail -n 30 "$dir/server.log" >&2
        exit 1
    fi
    if [[ $fresh -eq 1 ]]; then
        "$bin/createdb" -h "$dir" -p "$port" -U ondaro ondaro
    fi
    echo "$url"
}

stop() {
    if is_running; then
        local pid
        pid=$(cat "$dir/server.pid")
        # Fast shutdown: sessions are ended, the data stays.
        kill -INT "$pid" 2>/dev/null || true
        for _ in $(seq 300); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        if kill -0 "$pid" 2>/dev/null; then
            kill -QUIT "$pid" 2>/dev/null || true
        fi
    fi
    rm -f "$dir/server.pid"
    if [[ "$option" == "--remove" ]]; then
        rm -rf "$dir"
    fi
}

case "$command" in
start) start ;;
stop) stop ;;
url) echo "$url" ;;
*)
    echo "pg-test-server: unknown command \"$command\"" >&2
    exit 2
    ;;
esac
