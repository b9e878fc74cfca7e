#include "Order.h"

namespace mlt {

namespace {

/// Whether a track, which may be made of tracks itself, has a clip at this position.
bool Shows(mlt_producer track, mlt_position position) {
    track = mlt_producer_cut_parent(track);
    const mlt_service service = MLT_PRODUCER_SERVICE(track);
    if (position < 0 || position >= mlt_producer_get_playtime(track))
        return false;
    if (mlt_service_identify(service) == mlt_service_playlist_type)
        return !mlt_playlist_is_blank_at(reinterpret_cast<mlt_playlist>(track), position);
    if (mlt_service_identify(service) != mlt_service_tractor_type)
        return true;
    const mlt_multitrack tracks = mlt_tractor_multitrack(reinterpret_cast<mlt_tractor>(track));
    for (int i = 0; i < mlt_multitrack_count(tracks); ++i)
        if (Shows(mlt_multitrack_track(tracks, i), position))
            return true;
    return false;
}

/// The tracks that the service lies between, seen through the services planted before it.
mlt_multitrack Tracks(mlt_transition service) {
    mlt_service below = mlt_service_producer(MLT_TRANSITION_SERVICE(service));
    while (below && mlt_service_identify(below) != mlt_service_multitrack_type)
        below = mlt_service_producer(below);
    return reinterpret_cast<mlt_multitrack>(below);
}

} // namespace

bool GoesFromSecondTrack(mlt_transition service) {
    const mlt_multitrack tracks = Tracks(service);
    if (!tracks)
        return false;
    const mlt_producer a = mlt_multitrack_track(tracks, mlt_transition_get_a_track(service));
    const mlt_producer b = mlt_multitrack_track(tracks, mlt_transition_get_b_track(service));
    if (!a || !b)
        return false;
    const mlt_position before = mlt_transition_get_in(service) - 1;
    const mlt_position after = mlt_transition_get_out(service) + 1;
    if (!Shows(b, before))
        return false;
    return !Shows(a, before) || (Shows(a, after) && !Shows(b, after));
}

} // namespace mlt
