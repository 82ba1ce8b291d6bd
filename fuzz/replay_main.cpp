// Runs files, or every file of folders, through a fuzz target: the corpus as an ordinary test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fs = std::filesystem;

static bool run_file(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return false;
    std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // A block of its own of just this size, so that a sanitizer sees a read past the end.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

static int run_path(const fs::path &path)
{
    if (!fs::is_directory(path))
        return run_file(path) ? 1 : 0;
    int count = 0;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path))
        if (entry.is_regular_file())
            count += run_file(entry.path());
    return count;
}

int main(int argc, char **argv)
{
    int count = 0;
    for (int i = 1; i < argc; i++)
        count += run_path(argv[i]);
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1; // a corpus that is not there shows nothing
}
