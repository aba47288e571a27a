#include "support/Speech.h"

#include <cstdio>

namespace tesk::test {

std::vector<float> speech(const std::string& text) {
    if (text.find('\'') != std::string::npos)
        return {};
    // espeak-ng speaks at 22050 Hz; every Tesk stream is 44100 Hz.
    const std::string command = "espeak-ng --stdout '" + text +
                                "' | ffmpeg -nostdin -loglevel error -f wav -i - -ar 44100 "
                                "-ac 1 -f f32le -";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return {};
    std::vector<float> samples;
    float buffer[4096];
    std::size_t count = 0;
    while ((count = std::fread(buffer, sizeof(float), std::size(buffer), pipe)) > 0)
        samples.insert(samples.end(), buffer, buffer + count);
    if (pclose(pipe) != 0)
        return {};
    return samples;
}

} // namespace tesk::test
