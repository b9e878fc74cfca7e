// GLib's locks, made known to the thread sanitizer, which sees those of POSIX threads only: GLib's
// are made of futexes in a library that is not built for it. Loaded in front of GLib, these are
// called in place of its own.

#include <glib.h>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {

template<class Function>
Function *Next(Function *, const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

template<class Lock>
void Take(void (*take)(Lock *), Lock *lock, unsigned flags) {
    __tsan_mutex_pre_lock(lock, flags);
    take(lock);
    __tsan_mutex_post_lock(lock, flags, 0);
}

template<class Lock>
void Give(void (*give)(Lock *), Lock *lock, unsigned flags) {
    __tsan_mutex_pre_unlock(lock, flags);
    give(lock);
    __tsan_mutex_post_unlock(lock, flags);
}

/// A wait gives the lock and takes it again.
template<class Wait>
auto Waiting(GMutex *mutex, Wait wait) {
    __tsan_mutex_pre_unlock(mutex, 0);
    __tsan_mutex_post_unlock(mutex, 0);
    const auto answer = wait();
    __tsan_mutex_pre_lock(mutex, 0);
    __tsan_mutex_post_lock(mutex, 0, 0);
    return answer;
}

constexpr unsigned kRecursive = __tsan_mutex_write_reentrant;

} // namespace

#pragma GCC visibility push(default)
extern "C" {

void g_mutex_lock(GMutex *mutex) {
    static auto *const real = Next(g_mutex_lock, "g_mutex_lock");
    Take(real, mutex, 0);
}

void g_mutex_unlock(GMutex *mutex) {
    static auto *const real = Next(g_mutex_unlock, "g_mutex_unlock");
    Give(real, mutex, 0);
}

gboolean g_mutex_trylock(GMutex *mutex) {
    static auto *const real = Next(g_mutex_trylock, "g_mutex_trylock");
    __tsan_mutex_pre_lock(mutex, __tsan_mutex_try_lock);
    const gboolean taken = real(mutex);
    __tsan_mutex_post_lock(mutex,
                           __tsan_mutex_try_lock | (taken ? 0 : __tsan_mutex_try_lock_failed), 0);
    return taken;
}

void g_rec_mutex_lock(GRecMutex *mutex) {
    static auto *const real = Next(g_rec_mutex_lock, "g_rec_mutex_lock");
    Take(real, mutex, kRecursive);
}

void g_rec_mutex_unlock(GRecMutex *mutex) {
    static auto *const real = Next(g_rec_mutex_unlock, "g_rec_mutex_unlock");
    Give(real, mutex, kRecursive);
}

void g_cond_wait(GCond *cond, GMutex *mutex) {
    static auto *const real = Next(g_cond_wait, "g_cond_wait");
    Waiting(mutex, [&] { return real(cond, mutex), 0; });
}

gboolean g_cond_wait_until(GCond *cond, GMutex *mutex, gint64 end) {
    static auto *const real = Next(g_cond_wait_until, "g_cond_wait_until");
    return Waiting(mutex, [&] { return real(cond, mutex, end); });
}

} // extern "C"
#pragma GCC visibility pop
