// Runs the target over the files named on the command line, and over all files of directories.
#include "sequence.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

namespace {

bool run(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> data{std::istreambuf_iterator<char>(file), {}};
    if (!file.good() && !file.eof()) {
        std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
        return false;
    }
    // The last line on a terminal names the input at which the target gave up.
    std::fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(data.data()), data.size());
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            count += run(argv[i]) ? 1 : 0;
            continue;
        }
        for (const fs::directory_entry &entry : fs::directory_iterator(argv[i]))
            count += run(entry.path()) ? 1 : 0;
    }
    std::fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
