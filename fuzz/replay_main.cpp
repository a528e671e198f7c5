// SPDX-License-Identifier: BSD-3-Clause
// Runs the fuzz harness over files (or every file of directories) without
// libFuzzer, so that the seed corpus is a regression test in every build,
// the sanitizer and target ones included.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

int run_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return 1;
}

int run_path(const std::string &path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        std::fprintf(stderr, "no such input: %s\n", path.c_str());
        return -1;
    }
    if (!S_ISDIR(st.st_mode)) {
        return run_file(path);
    }
    std::vector<std::string> names;
    DIR *dir = opendir(path.c_str());
    if (dir == nullptr) {
        std::fprintf(stderr, "cannot list %s\n", path.c_str());
        return -1;
    }
    errno = 0;
    while (dirent *e = readdir(dir)) {
        if (e->d_name[0] != '.') {
            names.push_back(path + "/" + e->d_name);
        }
    }
    const int listing_error = errno;
    closedir(dir);
    if (listing_error != 0) {
        std::fprintf(stderr, "cannot list %s: %s\n", path.c_str(), std::strerror(listing_error));
        return -1;
    }
    int n = 0;
    for (const std::string &name : names) {
        n += run_file(name);
    }
    return n;
}

} // namespace

int main(int argc, char **argv) {
    int total = 0;
    for (int i = 1; i < argc; ++i) {
        const int n = run_path(argv[i]);
        if (n < 0) {
            return 1;
        }
        total += n;
    }
    std::printf("%d inputs run\n", total);
    return total > 0 ? 0 : 1;
}
