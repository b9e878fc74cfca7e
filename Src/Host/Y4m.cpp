#include "Y4m.h"

#include "Program.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string_view>

namespace host {

namespace {

constexpr std::string_view kMagic = "YUV4MPEG2";
constexpr std::size_t kLongestLine = 4096;

using File = std::unique_ptr<std::FILE, decltype([](std::FILE *file) {
                                 if (file != stdin)
                                     std::fclose(file);
                             })>;

/// The kinds of 8-bit 4:2:0, by where their chroma samples lie.
struct Kind {
    const char *tag;
    AVChromaLocation location;
};
constexpr Kind kKinds[] = {{"420jpeg", AVCHROMA_LOC_CENTER},
                           {"420", AVCHROMA_LOC_CENTER},
                           {"420mpeg2", AVCHROMA_LOC_LEFT},
                           {"420paldv", AVCHROMA_LOC_TOPLEFT}};

bool ParseRatio(std::string_view text, AVRational &ratio) {
    const char *end = text.data() + text.size();
    const auto num = std::from_chars(text.data(), end, ratio.num);
    if (num.ec != std::errc() || num.ptr == end || *num.ptr != ':')
        return false;
    const auto den = std::from_chars(num.ptr + 1, end, ratio.den);
    return den.ec == std::errc() && den.ptr == end && ratio.num >= 0 && ratio.den >= 0;
}

bool ParseLength(std::string_view text, int &length) {
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, length);
    return error == std::errc() && stop == end && length >= 1 && length <= 16384;
}

class Y4mSource : public Source {
public:
    /// The magic word has been read from the file.
    Y4mSource(const std::string &fileName, File opened) : file(std::move(opened)) {
        name = fileName;
        ReadHeader();
        start = std::ftell(file.get());
        first = Read();
        if (!first)
            throw Failure(name + ": no frames in it");
    }

    Frame Read() override {
        if (first)
            return std::move(first);
        const std::optional<std::string> line = ReadLine();
        if (!line)
            return nullptr;
        if (*line != "FRAME" && !line->starts_with("FRAME "))
            throw Failure(name + ": no FRAME where frame " + std::to_string(count) +
                          " should begin");
        Frame frame = NewPicture(AV_PIX_FMT_YUV420P, format.width, format.height);
        for (int plane = 0; plane < 3; ++plane) {
            const int width = plane ? (format.width + 1) / 2 : format.width;
            const int rows = plane ? (format.height + 1) / 2 : format.height;
            for (int y = 0; y < rows; ++y)
                ReadBytes(frame->data[plane] + std::ptrdiff_t(y) * frame->linesize[plane], width);
        }
        frame->color_range = format.colours.range;
        frame->chroma_location = format.colours.location;
        frame->sample_aspect_ratio = format.aspect;
        frame->pts = count++;
        SetDuration(*frame, 1);
        return frame;
    }

    std::optional<std::int64_t> ScanLength() const override {
        if (start < 0 || !std::filesystem::is_regular_file(name))
            return {};
        const std::int64_t chroma =
            std::int64_t((format.width + 1) / 2) * ((format.height + 1) / 2);
        const std::int64_t frame = std::int64_t(std::strlen("FRAME\n")) +
                                   std::int64_t(format.width) * format.height + 2 * chroma;
        const std::int64_t size = std::int64_t(std::filesystem::file_size(name)) - start;
        // Otherwise the file was cut short, or its frames have parameters.
        return size % frame == 0 ? std::optional(size / frame) : std::nullopt;
    }

private:
    /// The next line without its end, nothing at the end of the file.
    std::optional<std::string> ReadLine() {
        std::string line;
        for (int c; (c = std::getc(file.get())) != '\n';) {
            if (c == EOF && line.empty() && !std::ferror(file.get()))
                return {};
            if (c == EOF || line.size() == kLongestLine)
                throw Failure(name + ": ends within a line or is not YUV4MPEG2 (frame " +
                              std::to_string(count) + ")");
            line += char(c);
        }
        return line;
    }

    void ReadBytes(std::uint8_t *bytes, std::size_t size) {
        if (std::fread(bytes, 1, size, file.get()) != size)
            throw Failure(name + ": ends within frame " + std::to_string(count));
    }

    void ReadHeader() {
        const std::optional<std::string> line = ReadLine();
        if (!line || (!line->empty() && line->front() != ' '))
            throw Failure(name + ": broken YUV4MPEG2 header");
        std::string chroma = "420jpeg";
        std::istringstream tags(*line);
        for (std::string tag; tags >> tag;)
            ReadTag(tag[0], tag.substr(1), chroma);
        if (!format.width || !format.height)
            throw Failure(name + ": the YUV4MPEG2 header does not give the size");
        const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                       [&](const Kind &k) { return chroma == k.tag; });
        if (kind == std::end(kKinds))
            throw Failure(name + ": YUV4MPEG2 of kind C" + chroma +
                          " cannot be read, only 8-bit 4:2:0 (C420jpeg, C420mpeg2, C420paldv)");
        format.colours.location = kind->location;
        format.y4mChroma = chroma;
        format.timeBase = av_inv_q(format.rate);
    }

    /// 0:0 stands for a rate that is not known.
    bool ReadRate(const std::string &value) {
        AVRational rate = {};
        if (!ParseRatio(value, rate) || !rate.num != !rate.den)
            return false;
        if (rate.num)
            format.rate = rate;
        return true;
    }

    void ReadTag(char tag, const std::string &value, std::string &chroma) {
        bool good = true;
        if (tag == 'W')
            good = ParseLength(value, format.width);
        else if (tag == 'H')
            good = ParseLength(value, format.height);
        else if (tag == 'F')
            good = ReadRate(value);
        else if (tag == 'A')
            good = ParseRatio(value, format.aspect);
        else if (tag == 'I')
            format.y4mInterlacing = value;
        else if (tag == 'C')
            chroma = value;
        else if (tag == 'X' && value.starts_with("COLORRANGE="))
            format.colours.range = value == "COLORRANGE=FULL" ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
        else if (tag == 'X')
            format.y4mComments.push_back(value);
        if (!good)
            throw Failure(name + ": bad tag " + tag + value + " in the YUV4MPEG2 header");
    }

    File file;
    Frame first;
    std::int64_t count = 0;
    long start = 0; ///< of the first frame, -1 in a pipe
};

} // namespace

std::unique_ptr<Source> OpenY4m(const std::string &name) {
    const bool isStdin = name == "-";
    File file(isStdin ? stdin : std::fopen(name.c_str(), "rb"));
    if (!file) {
        if (name.find("://") != std::string::npos || name.find('%') != std::string::npos)
            return nullptr; // a URL or a numbered series for FFmpeg's libraries
        throw Failure(name + ": " + std::strerror(errno));
    }
    char begin[kMagic.size()] = {};
    const std::size_t size = std::fread(begin, 1, sizeof begin, file.get());
    if (std::string_view(begin, size) == kMagic)
        return std::make_unique<Y4mSource>(isStdin ? "standard input" : name, std::move(file));
    if (std::filesystem::is_directory(name))
        throw Failure(name + ": is a folder");
    if (size == 0)
        throw Failure((isStdin ? "standard input" : name) + ": is empty");
    if (isStdin || !std::filesystem::is_regular_file(name))
        throw Failure((isStdin ? "standard input" : name) + ": only YUV4MPEG2 is read from a pipe");
    return nullptr;
}

std::string Y4mHeader(const VideoFormat &format) {
    const auto ratio = [](AVRational r) {
        return std::to_string(r.num) + ":" + std::to_string(r.den);
    };
    std::string chroma = format.y4mChroma;
    if (chroma.empty())
        chroma = format.colours.location == AVCHROMA_LOC_LEFT      ? "420mpeg2"
                 : format.colours.location == AVCHROMA_LOC_TOPLEFT ? "420paldv"
                                                                   : "420jpeg";
    std::string header = std::string(kMagic) + " W" + std::to_string(format.width) + " H" +
                         std::to_string(format.height) + " F" + ratio(format.rate) + " I" +
                         (format.y4mInterlacing.empty() ? "p" : format.y4mInterlacing) + " A" +
                         ratio(format.aspect) + " C" + chroma;
    for (const std::string &comment : format.y4mComments)
        header += " X" + comment;
    if (format.colours.range != AVCOL_RANGE_UNSPECIFIED)
        header +=
            format.colours.range == AVCOL_RANGE_JPEG ? " XCOLORRANGE=FULL" : " XCOLORRANGE=LIMITED";
    return header + "\n";
}

void WriteY4mFrame(std::FILE *file, const std::string &name, const AVFrame &frame) {
    bool good = std::fputs("FRAME\n", file) >= 0;
    for (int plane = 0; plane < 3 && good; ++plane) {
        const std::size_t width = plane ? (frame.width + 1) / 2 : frame.width;
        const int rows = plane ? (frame.height + 1) / 2 : frame.height;
        for (int y = 0; y < rows && good; ++y)
            good = std::fwrite(frame.data[plane] + std::ptrdiff_t(y) * frame.linesize[plane], 1,
                               width, file) == width;
    }
    if (!good)
        throw Failure(name + ": " + std::strerror(errno));
}

} // namespace host
