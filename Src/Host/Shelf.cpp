#include "Shelf.h"

#include "Failure.h"
#include "Messages.h"

namespace host {

Shelf::Open &Shelf::At(int clip, std::int64_t frame) {
    constexpr std::int64_t kReadOn = 50; // nearer frames are reached faster than sought
    const auto found = open.find(clip);
    if (found != open.end()) {
        const std::int64_t first = found->second.next - std::int64_t(found->second.ahead.size());
        if (clips[clip].isPipe || (frame >= first && frame < first + kReadOn))
            return found->second;
        open.erase(found);
    }
    const std::int64_t start = clips[clip].isPipe ? 0 : frame;
    return open.try_emplace(clip, Open{Footage(clips[clip], canvas, start), start, {}, {}, 0})
        .first->second;
}

Frame Shelf::Get(int clip, std::int64_t frame) {
    constexpr std::int64_t kMostMissing = 12;
    Open &from = At(clip, frame);
    for (;;) {
        const std::int64_t number = from.next - std::int64_t(from.ahead.size());
        Frame picture;
        if (!from.ahead.empty()) {
            picture = std::move(from.ahead.front());
            from.ahead.pop_front();
        } else {
            picture = from.footage.Read();
            ++from.next;
        }
        if (!picture && (!from.last || ++from.missing > kMostMissing))
            throw Failure(clips[clip].name + ": damaged or cut short after " +
                          Counted(clips[clip].in + number, "frame"));
        if (picture)
            from.last = std::move(picture);
        if (number == frame)
            return Share(*from.last);
    }
}

std::optional<std::int64_t> Shelf::EndBefore(int clip, std::int64_t frame) {
    Open &from = At(clip, frame);
    while (from.next <= frame) {
        Frame picture = from.footage.Read();
        if (!picture)
            return from.next;
        ++from.next;
        from.ahead.push_back(std::move(picture));
    }
    return {};
}

} // namespace host
