// SPDX-License-Identifier: MIT
// Reads container files where they lie in memory, without a copy:  read_container FILE...
// A file may hold several containers back to back. No camera and no camera library is needed.
#include <hx_container.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <numeric>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::vector<char> readFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot be opened");
    std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    if (file.bad()) throw std::runtime_error("cannot be read");
    return bytes;
}

void show(const hx::ContainerView& frame) {
    frame.requirePicture();
    // Samples of a second container in a file may lie at an odd address; a copy works anywhere.
    std::vector<std::uint16_t> copy;
    std::span<const std::uint16_t> samples;
    if (const auto inPlace = frame.samples()) {
        samples = *inPlace;
    } else {
        copy.resize(frame.sampleCount());
        frame.copySamples(copy);
        samples = copy;
    }
    const auto [least, most] = std::minmax_element(samples.begin(), samples.end());
    const double sum = std::accumulate(samples.begin(), samples.end(), 0.0);
    const std::string camera(frame.identification());
    const std::string time(frame.time());
    std::printf("%s  %s  %zux%zu  exposure %zu  samples %u to %u, mean %.1f\n", camera.c_str(),
                time.c_str(), frame.width(), frame.height(), frame.exposure(), *least, *most,
                sum / static_cast<double>(samples.size()));
}

bool showFile(const char* path) {
    std::size_t begin = 0;
    try {
        const std::vector<char> bytes = readFile(path);
        do {
            const hx::ContainerView frame(bytes.data() + begin, bytes.size() - begin);
            show(frame);
            begin += frame.size();
        } while (begin < bytes.size());
        return true;
    } catch (const hx::ContainerFault& fault) {
        std::fprintf(stderr, "%s: at byte %zu: %s\n", path, begin + fault.offset(), fault.what());
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "%s: %s\n", path, fault.what());
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: read_container FILE...\n");
        return 2;
    }
    bool good = true;
    for (int i = 1; i < argc; ++i) good = showFile(argv[i]) && good;
    return good ? 0 : 1;
}
