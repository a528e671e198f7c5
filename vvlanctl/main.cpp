// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl: see, check and drive the voice VLAN from a shell.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "dov_vvlan_version.h"
#include "help.h"
#include "output.h"
#include "printable.h"

namespace {

struct command_entry {
    const char *name;
    int (*run)(const tool_context &);
};

const command_entry COMMANDS[] = {
    {"show", cmd_show},     {"check", cmd_check},     {"watch", cmd_watch},
    {"set", cmd_write},     {"unset", cmd_write},     {"add", cmd_write},
    {"del", cmd_write},     {"learn", cmd_write},     {"age", cmd_write},
    {"specify", cmd_write}, {"unspecify", cmd_write}, {"debug", cmd_write},
    {"sync", cmd_sync},     {"metrics", cmd_metrics}, {"record", cmd_record},
    {"replay", cmd_replay}, {"history", cmd_history},
};

int usage(const std::string &why) {
    std::fprintf(stderr, "vvlanctl: %s (vvlanctl --help)\n", printable(why).c_str());
    return EXIT_USAGE;
}

// "-h" is the host, as for redis-cli; alone it was most likely meant as help.
std::string missing_value(const std::string &option) {
    std::string why = "option " + option + " needs a value";
    if (option == "-h") {
        why += "; -h is --host HOST, help is --help";
    }
    return why;
}

// "--name=value" or "--name value" / "-n value".
bool option_value(int argc, char **argv, int *i, const char *shrt, const char *lng,
                  std::string *value, std::string *why) {
    const std::string arg = argv[*i];
    const std::string eq = std::string(lng) + "=";
    if (arg.rfind(eq, 0) == 0) {
        *value = arg.substr(eq.size());
    } else if (arg == shrt || arg == lng) {
        if (*i + 1 >= argc) {
            *why = missing_value(arg);
            return false;
        }
        *value = argv[++*i];
    } else {
        return false;
    }
    if (value->empty()) {
        *why = "option " + arg + " has an empty value";
        return false;
    }
    return true;
}

} // namespace

int fail(const tool_context &t, int status, const std::string &why) {
    std::fprintf(stderr, "vvlanctl: %s: %s\n", t.command.c_str(), printable(why).c_str());
    return status;
}

std::unique_ptr<connection> connect_or_report(const tool_context &t) {
    std::string why;
    auto c = connection::open(t.address, t.who, &why);
    if (!c) {
        fail(t, EXIT_CONNECT, "cannot connect to " + t.address.describe() + ": " + why);
    }
    return c;
}

int lost(const tool_context &t, const connection &c) {
    return fail(t, EXIT_CONNECT, "server " + t.address.describe() + ": " + c.error());
}

int main(int argc, char **argv) {
    // A server that goes away must give status 3, not kill the tool; a
    // reader of the output that goes away is told apart when writing to it.
    std::signal(SIGPIPE, SIG_IGN);
    std::string socket_opt;
    std::string host_opt;
    std::string port_opt;
    std::string user_opt;
    std::string pass_opt;
    std::string url_opt;
    conn_settings::address_options tls_opt; // --tls and its files
    bool json = false;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        const std::string arg = argv[i];
        std::string why;
        if (arg == "--help") {
            std::fputs(TOOL_HELP, stdout);
            return finish_output(EXIT_FINE);
        }
        if (arg == "--version") {
            // The tool's name, then the version text the daemon carries, so
            // a tool and a daemon from one build say the same.
            std::printf("vvlanctl from %s\n", dov_vvlan_version);
            return finish_output(EXIT_FINE);
        }
        if (arg == "-j" || arg == "--json") {
            json = true;
            continue;
        }
        if (option_value(argc, argv, &i, "-s", "--socket", &socket_opt, &why) ||
            option_value(argc, argv, &i, "-h", "--host", &host_opt, &why) ||
            option_value(argc, argv, &i, "-p", "--port", &port_opt, &why) ||
            option_value(argc, argv, &i, "-u", "--url", &url_opt, &why) ||
            option_value(argc, argv, &i, "--user", "--user", &user_opt, &why) ||
            option_value(argc, argv, &i, "-a", "--pass", &pass_opt, &why) ||
            option_value(argc, argv, &i, "--cacert", "--cacert", &tls_opt.tls_files.ca_file,
                         &why) ||
            option_value(argc, argv, &i, "--cacertdir", "--cacertdir", &tls_opt.tls_files.ca_dir,
                         &why) ||
            option_value(argc, argv, &i, "--cert", "--cert", &tls_opt.tls_files.cert_file, &why) ||
            option_value(argc, argv, &i, "--key", "--key", &tls_opt.tls_files.key_file, &why) ||
            option_value(argc, argv, &i, "--sni", "--sni", &tls_opt.tls_files.server_name, &why)) {
            continue;
        }
        if (arg == "--tls" || arg == "--insecure") {
            (arg == "--tls" ? tls_opt.tls : tls_opt.insecure) = true;
            continue;
        }
        return usage(why.empty() ? "unknown option \"" + arg + "\"" : why);
    }
    if (i >= argc) {
        return usage("no command");
    }
    if (!socket_opt.empty() && (!host_opt.empty() || !port_opt.empty())) {
        return usage("--socket and --host/--port exclude each other");
    }
    conn_settings::url_parts url;
    if (!url_opt.empty()) {
        std::string why;
        if (!socket_opt.empty() || !host_opt.empty() || !port_opt.empty()) {
            return usage("--url and --socket/--host/--port exclude each other");
        }
        if (!conn_settings::parse_url(url_opt, url, why)) {
            return usage(why);
        }
    }
    if (!pass_opt.empty() || !url.who.password.empty()) {
        // As redis-cli says: every user can read a command line.
        std::fputs("Warning: Using a password with '-a', '--pass' or '--url' on the command line "
                   "may not be safe; REDISCLI_AUTH or a password file is.\n",
                   stderr);
    }
    tool_context t;
    t.command = argv[i];
    t.json = json;
    for (int k = i + 1; k < argc; ++k) {
        t.args.emplace_back(argv[k]);
    }
    const command_entry *found = nullptr;
    for (const command_entry &c : COMMANDS) {
        if (t.command == c.name) {
            found = &c;
        }
    }
    if (found == nullptr) {
        return usage("unknown command \"" + t.command + "\"");
    }
    for (const std::string &a : t.args) {
        if (a == "--help") {
            std::fputs(command_help(t.command), stdout);
            return finish_output(EXIT_FINE);
        }
    }
    std::string why;
    conn_settings::address_options where = tls_opt;
    if (url_opt.empty()) {
        where.socket_path = socket_opt;
        where.host = host_opt;
        where.port = port_opt;
    } else {
        where.socket_path = url.where.socket_path;
        where.host = url.where.host;
        where.port = url.where.port;
        where.tls = where.tls || url.where.tls;
    }
    if (!conn_settings::resolve(where, t.address, why)) {
        return fail(t, EXIT_USAGE, why);
    }
    // Who we are: the bus library's settings, then redis-cli's REDISCLI_AUTH,
    // then the command line.
    if (!conn_settings::credentials_from_environment(t.who, why)) {
        return fail(t, EXIT_USAGE, why);
    }
    if (const char *auth = std::getenv("REDISCLI_AUTH"); auth != nullptr && auth[0] != '\0') {
        t.who.password = auth;
    }
    for (const conn_settings::credentials &given : {url.who, {user_opt, pass_opt}}) {
        if (!given.user.empty()) {
            t.who.user = given.user;
        }
        if (!given.password.empty()) {
            t.who.password = given.password;
        }
    }
    return finish_output(found->run(t));
}
