#include "tests/apps/Files.h"

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace Ormek::Testing {

const std::vector<std::string> AwkwardNames{"with spaces.txt",
                                            "it's.txt",
                                            "\"quoted\".txt",
                                            "two\nlines.txt",
                                            "back\\slash.txt",
                                            "caf\xe9.txt",
                                            "-dash.txt",
                                            "-1",
                                            "#hash",
                                            "\xf0\x9f\x90\x99.txt",
                                            "\033[31mred",
                                            "c1\xc2\x9b",
                                            "*",
                                            "$HOME",
                                            std::string(255, 'n'),
                                            "\xff",
                                            "tab\there",
                                            " ",
                                            "ends in lf\n",
                                            "~"};

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    DIR* stream = opendir(folder.c_str());
    if (stream == nullptr) {
        throw std::runtime_error("cannot read " + folder.string());
    }
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    closedir(stream);
    std::sort(names.begin(), names.end());
    return names;
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string randomBytes(std::size_t size, unsigned long seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

std::vector<std::string> splitAtNuls(const std::string& text) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\0', begin)) != std::string::npos;
         begin = end + 1) {
        parts.push_back(text.substr(begin, end - begin));
    }
    if (begin != text.size()) {
        throw std::runtime_error("the last name is not ended: " + text.substr(begin));
    }
    return parts;
}

std::string word(const std::string& name) {
    std::string text = "$'";
    for (const char character : name) {
        if (character == '\n') {
            text += "\\n";
        } else {
            text += character == '\'' || character == '\\' ? "\\" : "";
            text += character;
        }
    }
    return text + "'";
}

}  // namespace Ormek::Testing
