// SPDX-License-Identifier: BSD-3-Clause
#include "help.h"

#include <cstring>

const char *const TOOL_HELP =
    R"(usage: vvlanctl [-s PATH | -h HOST [-p PORT] [--tls ...] | -u URL] [--user NAME] COMMAND [ARGUMENTS]
       vvlanctl --help | --version | COMMAND --help

See, check and drive the voice VLAN of dov_vvlan through the switch's
redis-server: database 1 holds the configuration and the join requests,
database 0 the applied copies, the learned addresses and the messages.

Connection (first that applies):
  -s, --socket PATH   Unix socket of the redis-server
  -h, --host HOST     TCP host      -p, --port PORT   TCP port
  -u, --url URL       redis://[USER[:PASSWORD]@]HOST[:PORT] (rediss:// for
                      TLS) or unix://[USER[:PASSWORD]@]/PATH
  TUKREDIS_SOCKET, then TUKREDIS_HOST and TUKREDIS_PORT, as the bus library
  reads them; else 127.0.0.1:6379. Ports are converted between phyid and
  ifx by the device manager (LIBSDM_PORT_MAP on a PC).

TLS (TCP only; the server's certificate and name are always verified):
  --tls               connect with TLS (or TUKREDIS_TLS=1)
  --cacert FILE       CAs that vouch for the server   --cacertdir DIR
  --cert FILE --key FILE   a client certificate, for tls-auth-clients
  --sni NAME          the server's name, when it is not the host
  --insecure          do not verify the server's certificate (by hand only)
  TUKREDIS_TLS_CACERT, _CACERTDIR, _CERT, _KEY and _SNI as the bus library
  reads them; the command line wins.

Authentication (AUTH before anything else; last that applies):
  TUKREDIS_USER, and TUKREDIS_PASSWORD_FILE (readable by its owner alone) or
  TUKREDIS_PASSWORD, as the bus library reads them; REDISCLI_AUTH (a
  password); --user NAME; -a, --pass PASSWORD (visible to every user in the
  process list: prefer REDISCLI_AUTH or a password file).

Commands:
  show [port IFX | ouis | mac-vlan] [-j]  the voice VLAN as configured and
                           as applied, whether the daemon follows it, and why
                           each port is where it is
  check [--probe] [-j]     find the conditions that leave the voice VLAN wrong
                           (status as a monitoring plugin: 0 OK, 1 WARNING,
                           2 CRITICAL, 3 UNKNOWN)
  metrics                  the same in the Prometheus text format
  watch [--count N] [--json] [--enable-events] [port IFX] [oui OUI]
        [family NAME]      follow both databases, one decoded line per event
  history [--json] [filters] [address MAC] [--since TIME] [--until TIME]
        RECORDING...       a flight recording read back as a timeline
  set vid VLAN [--replace] | unset vid VLAN    voice VLAN on with that id, off
  set aging MINUTES [--replace]        aging time
  set cos COS DSCP [--replace]         CoS and DSCP of voice traffic
  set security on|off [--replace]      security mode
  add oui OUI [MASK] | del oui OUI [MASK]          voice OUIs
  set auto IFX | unset auto IFX        a port in or out of automatic mode
  learn VLAN PHYID MAC | age VLAN PHYID MAC        the forwarding layer
  specify OUI PHYID | unspecify OUI PHYID          specified-OUI messages
  add mvlan INDEX MAC MASK VLAN | del mvlan INDEX  MAC-VLAN table entries
  debug LEVEL              the daemon's trace level (debugDovVVlan)
  sync [--timeout SECONDS] wait until the daemon has handled every write
  record -o FILE [--duration D] [--count N] [--ring-size SIZE]
        [--ring-age D]     the flight recorder: the keys and every event of
                           them into FILE (never writes to the server)
  replay [--fast] RECORDING... -- DAEMON [ARGS...]   play a flight recording
                           to a daemon on this machine and compare

-j, --json before or after a reading command (show, check, watch) prints
JSON; its schemas are installed under share/dov_vvlan/schema.

Addresses: 12 hexadecimal digits, six pairs separated by ':' or '-', or
aabb.ccdd.eeff.

Exit status, the same for every command (check's are the monitoring
plugins' OK, WARNING, CRITICAL and UNKNOWN):
  0  success; check: OK
  1  check: WARNING; other commands: understood but not done (deleting what
     is not there, a setting held by another value without --replace, sync
     not answered in time, keyspace events off for watch)
  2  check: CRITICAL
  3  UNKNOWN: bad usage or input (nothing written), no usable connection to
     the server, an error writing the output
  A reader of the output that went away ends the tool by SIGPIPE (141 in a
  shell), as any filter.
)";

namespace {

const char *const SHOW_HELP = R"(usage: vvlanctl show [port IFX | ouis | mac-vlan] [-j|--json]

Reads both databases and the server's client list and prints:
  - the daemon: subscribed (a connection holds its subscription patterns;
    since when), connected but not subscribed, or not connected; the
    published keys in database 0 carry no time to live and outlive it;
  - the voice VLAN: id and state, security mode, CoS/DSCP, aging time, the
    load-complete marker, as configured (database 1) and as applied
    (database 0; the applied id is the one the daemon published);
  - the OUI table by slot, as the daemon's echoes in database 0 show it,
    with the vendor from the IEEE registry when ieee-data is installed;
  - every port that is automatic, joined (its mode 2 key
    /bridge/vvlan/port_oper/<ifx>/2 is in database 0) or has a join request
    (/bri/mac/macTblDyn_vvlan/<ifx> in database 1), with why: the voice-OUI
    addresses learned on it now in the voice VLAN (address, phyid, the slot it
    matches) and the specified-OUI messages that name it;
  - the MAC-VLAN entries (INDEX 0..127 is key number 256 + INDEX) and whether
    the OUI message of their slot is published.
port IFX, ouis and mac-vlan print one part (port: with the daemon's state).

--json: one object, schema_version 1, every value configured and applied
side by side, null where there is none, addresses as 00:e0:bb:12:34:56
(schema: show.schema.json, docs/vvlanctl-json.md).
)";

const char *const RECORD_HELP =
    R"(usage: vvlanctl record -o FILE [--duration D] [--count N] [--ring-size SIZE]
                       [--ring-age D] [--presence-interval D]

The flight recorder. A snapshot of every key of the voice VLAN's families in
both databases (type, value bytes, time to live), then every keyspace event
of them with the value read right after it, the daemon's subscription as the
client list shows it (every --presence-interval, default 1s), and the
recorder's own connection losses (it reconnects every second and takes a new
snapshot). history reads the file, replay plays it to a daemon on a PC. It
never writes to the server: a user allowed +@read, +psubscribe, +ping,
+select, +time and CLIENT LIST (and CONFIG GET, to check the event flags) is
enough. It stops at a signal (SIGINT, SIGTERM, SIGHUP), after the duration or
after N events, and says how many it recorded.

  -o, --output FILE    the recording (truncated)
  --duration D         stop after D: 90s, 10m, 24h, 2d, 500ms
  --count N            stop after N events
  --ring-size SIZE     keep at most about SIZE bytes (at least 64k; k, M, G):
                       FILE and FILE.1, each up to half, each starting with a
                       snapshot; read them as "FILE.1 FILE"
  --ring-age D         the same by age: each file holds up to half of D
  --presence-interval D   how often the client list is read (at least 50ms)

The server's notify-keyspace-events must hold K, g, $, x and e (status 1 and
the command to set them if not). A recording takes about 30 bytes per event
of the forwarding layer (under 300 KiB per 10,000).
)";

const char *const REPLAY_HELP =
    R"(usage: vvlanctl replay [options] RECORDING... -- DAEMON [ARGS...]

Plays a recording of vvlanctl record to a daemon on this machine and
compares what it publishes with what the recorded daemon published. Starts
a private redis-server (Unix socket, keyspace events on, a user of its own
for the daemon), loads the recording's first snapshot (learned addresses
are re-written once the daemon runs, since it learns only from events),
starts DAEMON ARGS under a pseudo-terminal with TUKREDIS_SOCKET,
TUKREDIS_USER and TUKREDIS_PASSWORD, turns its traces on, and writes every
recorded event of a key the daemon does not write itself, in order. A lost
subscription is played by denying the daemon PSUBSCRIBE and closing its
subscription connection; a daemon that went away is stopped and started
again. Several files: a ring's older file first.
  e.g. vvlanctl replay --fast rec.vvr -- out/host/dov_vvlan

Options:
  --redis-server PATH  the server to start ($REDIS_SERVER_BIN, else
                       redis-server in PATH)
  --on SOCKET          use this server instead; databases 0 and 1 must be
                       empty (they are emptied again at the end)
  --keep               keep the private server's directory (dump.rdb)
  --trace FILE         the daemon's output (default replay.trace)
  --debug LEVEL        the trace level written to debugDovVVlan (default 32)
  --timeout SECONDS    for the daemon to subscribe and to copy the
                       load-complete marker (default 30)
  --speed X            X times the recorded pace (default 1)
  --fast               each event once the daemon has handled the one before
  --until TIME         stop at a recorded time: 2026-11-24T00:45:01Z (or
                       with its offset, as watch prints it), or seconds
                       from the recording's start (90s)
  -j, --json           one JSON document (schema: replay.schema.json)

At the end the daemon's keys of both databases are compared with the
recording's at the same point; each difference is printed as one of check's
findings (join_key_missing, join_key_without_join, published_differs), then
check's audit of the replayed databases and a summary line.
The daemon traces its own start-up only when its marker file
(/var/tmp/dov_vvlan_dbg under its prefix) is there.
Exit status: 0 no difference, 1 differences, 3 bad usage, a recording with
a fault (refused before anything starts), no server, or a daemon that never
subscribed.
)";

const char *const METRICS_HELP = R"(usage: vvlanctl metrics

Prints, in the Prometheus text exposition format, for node_exporter's
textfile collector: whether the daemon is subscribed, the voice VLAN as
configured and applied, OUI slots used, automatic and joined ports, voice
addresses per port, check's findings by kind and severity and its status.
  vvlanctl metrics > /var/lib/prometheus/node-exporter/dov_vvlan.prom.$$ &&
  mv /var/lib/prometheus/node-exporter/dov_vvlan.prom.$$ \
     /var/lib/prometheus/node-exporter/dov_vvlan.prom
)";

const char *const CHECK_HELP = R"(usage: vvlanctl check [--probe] [-j|--json]

Audits both databases and the server's client list. One finding per line,
"kind [port IFX]: severity: detail", then "  advice: " and the vvlanctl
commands that clear it (--json: schema check.schema.json). While the daemon
is not subscribed only that is reported: what it published is stale.
--probe also writes the load-complete marker and waits 5 s for the daemon's
copy (daemon_not_answering when none comes).

Exit status, as monitoring plugins give it (Icinga, Nagios, Zabbix and
Checkmk read it): 0 OK (nothing, or info only: an aging window is normal
operation), 1 WARNING, 2 CRITICAL, 3 UNKNOWN (bad usage, no usable server,
the output could not be written).

Severities: critical: daemon_not_subscribed, daemon_not_answering,
join_key_missing, voice_address_not_joined; warning: daemon_presence_unknown,
several_voice_vlans, joined_not_auto, join_key_without_join,
published_differs, applied_without_configuration, oui_message_without_entry;
info: joined_without_voice_address.

daemon_not_subscribed: no connection holds the daemon's subscription
  patterns (its connections are named "tukredis" by the bus library).
  Do: start the daemon, then sync.

several_voice_vlans: more than one voice VLAN id key in database 1; the
  daemon follows the last one written.
  Do: set vid with the one wanted and --replace.

join_key_without_join: a mode 2 key in database 0 without a join request.
  Do: unset auto IFX, set auto IFX.

applied_without_configuration: a database-0 copy (vid, secu_mode,
  cos_dscp, an OUI echo, a mode 1 echo) whose configuration is gone; the
  daemon withdraws a copy only when it sees its configuration deleted.
  Do: write the setting and delete it again (the advice names both).

oui_message_without_entry: a MAC-VLAN OUI message in database 0 that no
  MAC-VLAN entry accounts for (a server restart, then a daemon restart).
  Do: add a MAC-VLAN entry with that OUI in the voice VLAN and delete it.

join_key_missing: a join request in database 1, no mode 2 key in database 0.
  Points at: every re-synchronisation (after any lost subscription: a server
  restart, a killed subscription client, an output-buffer overflow, a stalled
  server) sweeps /bridge/vvlan/port_oper/*, and nothing re-publishes mode 2
  keys; the port stays joined in the daemon's memory and later learnings
  write nothing back. Also left by taking a joined port out of automatic mode
  (the join request is deliberately kept).
  Do: take the port out of automatic mode and put it back (unset auto IFX,
  set auto IFX), then let the phone be learned again; if the join request
  stays, delete it as the management plane would, or restart the daemon.

joined_without_voice_address: a join request, but no voice-OUI address
  learned on the port in the voice VLAN and no specified-OUI message for it.
  Normal for one aging period after the last voice address aged.
  Points at: a deleted OUI after its phone aged wraps the port's count
  (the plain decrement is kept) and the port never leaves; learnings and
  ageings lost during a disconnection are never re-read; configuration
  deleted while the daemon was disconnected stays applied in memory.
  Do: if it outlasts the aging time, unset and set the port's automatic mode
  (or restart the daemon) so its count starts from zero.

voice_address_not_joined: a voice-OUI address learned on an automatic port
  in the voice VLAN, and no join request.
  Points at: a learning made while the daemon was disconnected or stopped
  (the re-synchronisation does not re-read MAC-learning keys), or a count
  that drifted after lost ageings.
  Do: age the address, unset and set the port's automatic mode (its count
  starts from zero again: after a server restart it still holds the
  address), then learn the address again.

joined_not_auto: a join request or a mode 2 key on a port that is not in
  automatic mode.
  Points at: leaving automatic mode deletes the mode 2 key but deliberately
  keeps the join request (only an aging removes it); configuration deleted
  while the daemon was disconnected stays applied in its memory.
  Do: if the port should not be in the voice VLAN, put it in automatic mode
  until it ages out, or delete the join request as the management plane
  would.

published_differs: a database-0 copy that differs from the configuration,
  or a configuration whose copy is missing.
  Points at: configuration deleted while the daemon was disconnected (the
  scan re-reads only keys that still exist, so a deleted security mode is
  published again); a deleted CoS/DSCP key, which is never withdrawn; an OUI
  refused by a full table (124 slots).
  Do: write the setting again as it should be (or delete and re-add it) and
  run sync; restart the daemon if the copy still differs.
)";

const char *const WATCH_HELP =
    R"(usage: vvlanctl watch [--count N] [--json] [--enable-events]
                      [port IFX] [oui OUI] [family NAME]

Follows the keyspace events of both databases and prints one line per event
with an ISO 8601 time stamp (local time, milliseconds, offset), in the
system's terms, for example:
  2026-11-24T12:00:01.250+01:00 learn vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0
  2026-11-24T12:00:01.251+01:00 join port 5
  2026-11-24T12:00:09.004+01:00 oui add slot 3 00e0bb000000/ffffff000000
Configuration (database 1) reads as the command that writes it ("set vid
100", "set auto port 5"); the daemon's copies read as applied or withdrawn;
"marked" is a re-synchronisation's time to live.

Filters (all that are given must match): port IFX, the port's own keys and
those of its phyid; oui OUI, the OUI's table keys and the addresses and
specified-OUI messages under its first three bytes; family NAME, the keys of
one family (vid, secu_mode, cos_dscp, age_timer, port_oper, oui_oper,
mac_learning (learned addresses and join requests), spec_oui_msg, mac_vlan,
data_end, debug_level, mvlan_oui_msg).

--json prints one object per line: schema_version (1), time, db, event,
key, family (or null), port (or null), text (the text line without its
stamp); see the installed schema watch.schema.json.

The server must send keyspace events K, g, $, x and e (or K and A). watch
only reads the server's configuration: if a flag is missing it says which
and exits 1, and --enable-events adds them with CONFIG SET. Where CONFIG is
renamed or denied it watches as if they were on. "watching" on standard
error says the subscription is in place. Ends on SIGINT (or SIGTERM) with
status 0, or after N shown events; a closed output ends it by SIGPIPE.
)";

const char *const WRITE_HELP =
    R"(usage: vvlanctl set vid VLAN [--replace] | unset vid VLAN   (database 1)
       vvlanctl set aging MINUTES | set cos COS DSCP | set security on|off
                                              (each with [--replace])
       vvlanctl add oui OUI [MASK] | del oui OUI [MASK]
       vvlanctl set auto IFX | unset auto IFX
       vvlanctl learn VLAN PHYID MAC | age VLAN PHYID MAC (database 0)
       vvlanctl specify OUI PHYID | unspecify OUI PHYID
       vvlanctl add mvlan INDEX MAC MASK VLAN | del mvlan INDEX
       vvlanctl debug LEVEL

Writes keys as the management plane (database 1), the forwarding layer and
the other components (database 0) would, values encoded big-endian as the
switch's records:
  VLAN 1..4094; MINUTES 0..65535; COS 0..7; DSCP 0..63; IFX 0..52;
  PHYID a port the device manager knows; INDEX 0..127 (MAC-VLAN key number
  256 + INDEX); LEVEL 0..2147483647; OUI, MAC, MASK addresses (MASK of an
  OUI defaults to ffffff000000 and may not be zero; the OUI is written
  masked and may be neither zero nor a group address). "set security off"
  deletes every security mode key.
The voice VLAN, the aging time, CoS/DSCP and the security mode are each one
key: when another key of the same setting is there (another VLAN, say), set
refuses with status 1 and names it, and with --replace deletes it and
writes the new one in one transaction (MULTI/EXEC).
Every argument is checked first: a bad one is named, nothing is written,
and the status is 3. Deleting (unset, del, age, unspecify, set security
off) what is not there says so, and the status is 1.
)";

// Its own delimiter: the text quotes lines that end in a parenthesis.
const char *const HISTORY_HELP =
    R"text(usage: vvlanctl history [--json] [port IFX] [oui OUI] [family NAME]
                        [address MAC] [--since TIME] [--until TIME] RECORDING...

Reads a flight recording (a ring's older file first) and prints one line per
record, in watch's words and with its time stamps, using the values the
recorder read right after each event: no server is needed. The recorder's
own records read as words ("snapshot at start: 42 keys", "the recorder lost
its connection: ...", "the daemon is absent"), and where the keys prove what
the daemon did, the line says it ("; a re-synchronisation swept port 5's
mode 2 key", "; the aging thread deleted port 5's join request (left the
voice VLAN)", "; not seen by the daemon (it was not subscribed)").

Filters as watch's, plus address MAC (the learned-address keys of MAC);
--since and --until take a time as history prints it
(2026-11-24T12:00:01.250+01:00) or a time from the recording's start (90s,
15m, 1h). The recorder's own records are shown whatever the key filters.
--json prints one object per line; see the installed schema
history.schema.json. A damaged file: the records before the damage, then
"vvlanctl: history: FILE: byte N: ..." on standard error and status 3; a
file that is no recording: status 3 and nothing printed.
)text";

const char *const SYNC_HELP = R"(usage: vvlanctl sync [--timeout SECONDS]

Writes the load-complete marker /bridge/vvlan/data/end in database 1 with a
new number and waits until the daemon has copied it to database 0: since
the daemon handles notifications in order, everything written before has
then been handled. SECONDS 1..3600, default 10; status 1 when no copy came.
)";

struct entry {
    const char *name;
    const char *help;
};

const entry HELPS[] = {
    {"show", SHOW_HELP},       {"check", CHECK_HELP},     {"watch", WATCH_HELP},
    {"set", WRITE_HELP},       {"unset", WRITE_HELP},     {"add", WRITE_HELP},
    {"del", WRITE_HELP},       {"learn", WRITE_HELP},     {"age", WRITE_HELP},
    {"specify", WRITE_HELP},   {"unspecify", WRITE_HELP}, {"debug", WRITE_HELP},
    {"sync", SYNC_HELP},       {"metrics", METRICS_HELP}, {"replay", REPLAY_HELP},
    {"history", HISTORY_HELP}, {"record", RECORD_HELP},
};

} // namespace

const char *command_help(const std::string &command) {
    for (const entry &e : HELPS) {
        if (command == e.name) {
            return e.help;
        }
    }
    return nullptr;
}
