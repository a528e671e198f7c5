// SPDX-License-Identifier: BSD-3-Clause
// Seeds of the reader fuzzer: what a subscriber reads (pmessage frames of
// the daemon's own keys, the subscription's confirmations, PONG, an error)
// and the frames that must be left to hiredis (a wrapping length, a length
// that does not match its bytes, a nil channel), each fed whole and in
// pieces. One file per seed, written into DIR.
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::string bulk(const std::string &s) {
    return "$" + std::to_string(s.size()) + "\r\n" + s + "\r\n";
}

std::string pmessage(const std::string &pattern, const std::string &channel,
                     const std::string &event) {
    return "*4\r\n" + bulk("pmessage") + bulk(pattern) + bulk(channel) + bulk(event);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    const std::string learning =
        pmessage("__keyspace@0__:/bri/mac/*",
                 "__keyspace@0__:/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456", "set");
    const std::vector<std::string> streams = {
        learning + learning,
        "*3\r\n" + bulk("psubscribe") + bulk("__keyspace@1__:/bridge/vvlan/vid/*") + ":1\r\n" +
            learning,
        "*2\r\n" + bulk("pong") + bulk("") + learning,
        "-ERR unknown command\r\n" + learning,
        "*4\r\n" + bulk("pmessage") + bulk("p") + "$4294967324\r\n" + std::string(28, 'c') +
            "\r\n" + bulk("set"),
        "*4\r\n" + bulk("pmessage") + bulk("p") + "$3\r\nchannel\r\n" + bulk("set"),
        "*4\r\n" + bulk("pmessage") + "$01\r\np\r\n" + bulk("c") + bulk("set"),
        "*4\r\n" + bulk("pmessage") + bulk("p") + "$-1\r\n" + bulk("set") + learning,
        pmessage("p", "c", "expired") + ":12\r\n+OK\r\n" + pmessage("p", "c", "del"),
    };
    mkdir(argv[1], 0755);
    int n = 0;
    for (const std::string &stream : streams) {
        for (const char piece : {'\xff', '\x00', '\x06'}) { // whole, a byte, 7 bytes at a time
            std::ofstream out(std::string(argv[1]) + "/seed-" + std::to_string(n++),
                              std::ios::binary);
            out << piece << stream;
            if (!out) {
                std::fprintf(stderr, "cannot write into %s\n", argv[1]);
                return 1;
            }
        }
    }
    std::printf("%d seeds\n", n);
    return 0;
}
