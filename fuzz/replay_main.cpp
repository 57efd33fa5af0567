// Runs a fuzz target once over each file and each file of each folder given: how a build without libFuzzer replays a corpus.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
// Targets without work of their own to do first leave this one out.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *, char ***argv);

static bool replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    // Named before it runs, so that the last line before a finding says which file it was.
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize != nullptr && LLVMFuzzerInitialize(&argc, &argv) != 0)
        return 1;
    size_t files = 0;
    for (int i = 1; i < argc; i++) {
        if (!std::filesystem::is_directory(argv[i])) {
            if (!replay(argv[i]))
                return 1;
            files++;
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            if (!replay(entry.path()))
                return 1;
            files++;
        }
    }
    if (files == 0) {
        std::fprintf(stderr, "no corpus file given\n");
        return 1;
    }
    std::printf("%zu inputs replayed\n", files);
    return 0;
}
