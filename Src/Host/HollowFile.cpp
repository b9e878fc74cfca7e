#include "HollowFile.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <new>

namespace host {

HollowFile::HollowFile(const std::string &name) {
    constexpr int kBlock = 32768;
    Check(avio_open(&inner, ("file:" + name).c_str(), AVIO_FLAG_READ), name);
    size = avio_size(inner);
    auto *buffer = static_cast<unsigned char *>(av_malloc(kBlock));
    bytes = buffer ? avio_alloc_context(buffer, kBlock, 0, this, Read, nullptr, Seek) : nullptr;
    if (!bytes) {
        av_free(buffer);
        avio_closep(&inner);
        throw std::bad_alloc();
    }
}

HollowFile::~HollowFile() {
    av_freep(&bytes->buffer);
    avio_context_free(&bytes);
    avio_closep(&inner);
}

void HollowFile::LeaveOut(AVStream &stream, bool keepsKeys) {
    bytes->direct = 1; // so that a packet is asked for as a whole
    for (int i = 0; i < avformat_index_get_entries_count(&stream); ++i) {
        const AVIndexEntry &entry = *avformat_index_get_entry(&stream, i);
        const bool isInside = entry.pos + entry.size <= size; // a cut one shows as such
        if (isInside && !(keepsKeys && entry.flags & AVINDEX_KEYFRAME))
            sizes.emplace(entry.pos, entry.size);
    }
}

int HollowFile::Read(void *file, std::uint8_t *to, int wanted) {
    HollowFile &self = *static_cast<HollowFile *>(file);
    const auto found = self.sizes.find(self.at);
    int count = wanted;
    if (found != self.sizes.end() && found->second == wanted) {
        std::memset(to, 0, std::size_t(wanted));
    } else {
        avio_seek(self.inner, self.at, SEEK_SET);
        count = avio_read_partial(self.inner, to, wanted);
    }
    self.at += std::max(count, 0);
    return count;
}

std::int64_t HollowFile::Seek(void *file, std::int64_t offset, int whence) {
    HollowFile &self = *static_cast<HollowFile *>(file);
    if (whence & AVSEEK_SIZE)
        return self.size;
    const int from = whence & ~AVSEEK_FORCE;
    return self.at = offset + (from == SEEK_CUR ? self.at : from == SEEK_END ? self.size : 0);
}

bool HasIndex(const std::string &name, const AVFormatContext &demuxer) {
    std::error_code missing;
    return std::filesystem::is_regular_file(name, missing) &&
           std::strncmp(demuxer.iformat->name, "mov,", 4) == 0;
}

} // namespace host
