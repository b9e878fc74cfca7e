#include "Measure.h"

#include "Draw.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace hostkit {

namespace {

constexpr double kPositions[] = {0.15, 0.35, 0.5, 0.65, 0.85};
/// Small frames need no more sets than this, whatever memory they take.
constexpr std::size_t kMostSets = 64;
/// Between two readings of the clock, which cost some 50 nanoseconds.
constexpr double kBatchNanoseconds = 20000;
constexpr std::size_t kFewestRounds = 5;

// ---------------------------------------------------------------------------------------------
// Frames of one layout
// ---------------------------------------------------------------------------------------------

struct FrameSet {
    Frame out, in1, in2;
};

/// One step of a sequence of well-mixed words.
std::uint64_t Mix(std::uint64_t state) {
    state = (state ^ (state >> 32)) * 0xd6e8feb86659fd93U;
    return state ^ (state >> 29);
}

/// No transition may gain from what a picture shows.
void FillWithNoise(Frame &frame, std::uint64_t seed) {
    const std::span<std::uint8_t> bytes = frame.Bytes();
    for (std::size_t i = 0; i < bytes.size(); i += sizeof seed) {
        const std::uint64_t word = Mix(++seed * 0x9e3779b97f4a7c15U);
        std::memcpy(&bytes[i], &word, std::min(sizeof word, bytes.size() - i));
    }
}

Chroma ChromaOf(const Function &function) {
    return function.path == Path::Yuv ? function.transition->info.chroma : Chroma::Half;
}

Frame MakeFrame(const Function &function, const MeasureSettings &settings, std::uint64_t seed) {
    Frame frame(function.path, settings.width, settings.height, ChromaOf(function));
    FillWithNoise(frame, seed << 32);
    return frame;
}

FrameSet MakeSet(const Function &function, const MeasureSettings &settings) {
    return {MakeFrame(function, settings, 1), MakeFrame(function, settings, 2),
            MakeFrame(function, settings, 3)};
}

/// Draws and copies have frames of their own, so that neither leaves the other's in another state
/// of the caches.
struct Frames {
    std::vector<FrameSet> drawn;
    std::vector<FrameSet> copied; ///< without second inputs
};

Frames MakeFrames(const Function &function, const MeasureSettings &settings) {
    Frames frames;
    frames.drawn.push_back(MakeSet(function, settings));
    const std::size_t size = frames.drawn.front().out.Bytes().size();
    const auto count = [&](std::size_t members) {
        return std::clamp<std::size_t>(settings.workingSet / (members * size) + 1, 2, kMostSets);
    };
    while (frames.drawn.size() < count(3))
        frames.drawn.push_back(MakeSet(function, settings));
    while (frames.copied.size() < count(2))
        frames.copied.push_back(
            {MakeFrame(function, settings, 1), MakeFrame(function, settings, 2), {}});
    return frames;
}

bool HaveLayout(const Frames &frames, const Function &function) {
    if (frames.drawn.empty())
        return false;
    const Frame &frame = frames.drawn.front().out;
    return frame.Layout() == function.path && frame.Resolution() == ChromaOf(function);
}

// ---------------------------------------------------------------------------------------------
// What is measured
// ---------------------------------------------------------------------------------------------

void Draw(const Function &function, FrameSet &set, double position) {
    TransParam param = {};
    param.dTotal = 1;
    param.dCurrent = position;
    CallPlugin(*function.transition, set.out, set.in1, set.in2, param);
}

/// A frame's words one by one, the last one filled up with zeros.
template<class Use>
void ForEachWord(std::span<const std::uint8_t> bytes, const Use &use) {
    std::uint64_t word;
    std::size_t i = 0;
    for (; i + sizeof word <= bytes.size(); i += sizeof word) {
        std::memcpy(&word, bytes.data() + i, sizeof word);
        use(word);
    }
    word = 0;
    std::memcpy(&word, bytes.data() + i, bytes.size() - i);
    use(word);
}

/// Reads every byte; compilers vectorise the sum.
void Read(const Frame &frame) {
    std::uint64_t sum = 0;
    ForEachWord(frame.Bytes(), [&](std::uint64_t word) { sum += word; });
    asm volatile("" : : "r"(sum) : "memory"); // keeps the sum
}

void Copy(FrameSet &set) {
    std::uint8_t *copy = set.out.Bytes().data();
    std::memcpy(copy, set.in1.Bytes().data(), set.out.Bytes().size());
    asm volatile("" : : "r"(copy) : "memory"); // keeps the copy
}

void DrawNumbers(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
        int number = std::rand();
        asm volatile("" : "+r"(number));
    }
}

/// How often a draw calls rand(): the place in the sequence at which it leaves the generator. What
/// takes fewer numbers than pixels is not bound by them and counts as 0.
std::int64_t CountRandomNumbers(const Function &function, FrameSet &set) {
    const std::int64_t pixels = std::int64_t(set.out.Width()) * set.out.Height();
    const auto next = [] { return std::array<int, 3>{std::rand(), std::rand(), std::rand()}; };
    std::srand(1);
    Draw(function, set, 0.5);
    const std::array<int, 3> after = next();
    std::srand(1);
    std::array<int, 3> window = next();
    for (std::int64_t count = 0; count <= 8 * pixels; ++count) {
        if (window == after)
            return count < pixels ? 0 : count;
        window = {window[1], window[2], std::rand()};
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// The check
// ---------------------------------------------------------------------------------------------

/// The hash of the frame that a function draws over noise, the same in every process.
std::uint64_t DrawnHash(const Function &function, FrameSet &set, double position) {
    FillWithNoise(set.out, 0);
    std::srand(1);
    Draw(function, set, position);
    std::uint64_t hash = 0;
    ForEachWord(set.out.Bytes(), [&](std::uint64_t word) { hash = Mix(hash ^ word); });
    return hash;
}

std::vector<std::uint64_t> DrawnHashes(const std::vector<Function> &functions,
                                       const MeasureSettings &settings) {
    std::vector<std::uint64_t> hashes;
    for (const Function &function : functions) {
        FrameSet set = MakeSet(function, settings);
        for (const double position : kPositions)
            hashes.push_back(DrawnHash(function, set, position));
    }
    return hashes;
}

void Check(const Function &function, FrameSet &set, const std::uint64_t *expected) {
    for (const double position : kPositions)
        if (DrawnHash(function, set, position) != *expected++) {
            std::ostringstream text;
            text << function.Name() << " at " << position << " of " << set.out.Width() << "x"
                 << set.out.Height()
                 << ": the frame differs from the one that the baseline kernels draw";
            throw std::runtime_error(text.str());
        }
}

// ---------------------------------------------------------------------------------------------
// Other processes
// ---------------------------------------------------------------------------------------------

constexpr char kDone = 'd', kFailed = 'f';

void WriteAll(int file, const void *bytes, std::size_t size) {
    const char *from = static_cast<const char *>(bytes);
    for (ssize_t written; size > 0; from += written, size -= std::size_t(written))
        if ((written = write(file, from, size)) <= 0)
            _exit(1);
}

std::string ReadAll(int file) {
    std::string all;
    char buffer[4096];
    for (ssize_t size; (size = read(file, buffer, sizeof buffer)) > 0;)
        all.append(buffer, std::size_t(size));
    return all;
}

/// The child's side: what work returns, or the message of what it throws.
template<class Value>
[[noreturn]] void Answer(int file, const char *isa,
                         const std::function<std::vector<Value>()> &work) {
    if (isa)
        setenv("TP_ERASE_ISA", isa, 1);
    try {
        const std::vector<Value> values = work();
        WriteAll(file, &kDone, 1);
        WriteAll(file, values.data(), values.size() * sizeof(Value));
    } catch (const std::exception &error) {
        WriteAll(file, &kFailed, 1);
        WriteAll(file, error.what(), std::strlen(error.what()));
    }
    _exit(0);
}

/// What work returns in a forked process, in which the plug-in picks these kernels: it does so when
/// it first draws.
template<class Value>
std::vector<Value> Apart(const char *isa, const std::function<std::vector<Value>()> &work) {
    static_assert(std::is_trivially_copyable_v<Value>);
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("cannot open a pipe");
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        Answer(ends[1], isa, work);
    }
    close(ends[1]);
    const std::string answer = ReadAll(ends[0]);
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) < 0 || status != 0 || answer.empty())
        throw std::runtime_error(std::string("the process that draws with the ") +
                                 (isa ? isa : "chosen") + " kernels did not end well");
    if (answer[0] == kFailed)
        throw std::runtime_error(answer.substr(1));
    std::vector<Value> values((answer.size() - 1) / sizeof(Value));
    std::memcpy(values.data(), answer.data() + 1, values.size() * sizeof(Value));
    return values;
}

// ---------------------------------------------------------------------------------------------
// Times
// ---------------------------------------------------------------------------------------------

/// Nanoseconds of one call, the mean of as many.
template<class Work>
double Time(int calls, const Work &work) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < calls; ++i)
        work();
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / calls;
}

int BatchFor(double nanoseconds) {
    return int(std::clamp(kBatchNanoseconds / nanoseconds, 1.0, 1000.0));
}

/// The lower quartile: other work on the machine only ever adds time, and seldom to three quarters
/// of the rounds.
double Usual(std::vector<double> times) {
    const auto at = times.begin() + std::ptrdiff_t(times.size() / 4);
    std::nth_element(times.begin(), at, times.end());
    return *at;
}

Cost MeasureOne(const Function &function, Frames &frames, std::int64_t randomNumbers,
                double seconds) {
    std::size_t drawnSet = 0, copiedSet = 0;
    const auto copy = [&] {
        FrameSet &set = frames.copied[copiedSet = (copiedSet + 1) % frames.copied.size()];
        Copy(set);
        Read(set.out);
    };
    const auto draw = [&](double position) {
        FrameSet &set = frames.drawn[drawnSet = (drawnSet + 1) % frames.drawn.size()];
        Draw(function, set, position);
        Read(set.out);
    };
    const auto drawMiddle = [&] { draw(0.5); };
    Time(1, copy), Time(1, drawMiddle); // warms up
    const int copies = BatchFor(Time(10, copy)), draws = BatchFor(Time(3, drawMiddle));
    std::vector<double> drawTimes[std::size(kPositions)], copyTimes, randomTimes;
    double spent = 0;
    while (spent < seconds * 1e9 || copyTimes.size() < kFewestRounds * std::size(kPositions)) {
        for (std::size_t i = 0; i < std::size(kPositions); ++i) {
            drawTimes[i].push_back(Time(draws, [&] { draw(kPositions[i]); }));
            copyTimes.push_back(Time(copies, copy));
            spent += drawTimes[i].back() * draws + copyTimes.back() * copies;
        }
        randomTimes.push_back(Time(1, [&] { DrawNumbers(randomNumbers); }));
    }
    double drawn = 0;
    for (const std::vector<double> &times : drawTimes)
        drawn += Usual(times) / double(std::size(kPositions));
    return {drawn, Usual(copyTimes), randomNumbers, Usual(randomTimes)};
}

} // namespace

std::string Function::Name() const {
    return transition->name + (path == Path::Yuv ? " YUV" : " RGB");
}

void Measure(const std::vector<Function> &functions, const MeasureSettings &settings,
             const std::function<void(const Function &, const Cost &)> &done) {
    const std::vector<std::uint64_t> expected =
        Apart<std::uint64_t>("baseline", [&] { return DrawnHashes(functions, settings); });
    Frames frames;
    for (std::size_t i = 0; i < functions.size(); ++i) {
        if (!HaveLayout(frames, functions[i])) {
            frames = {}; // before the next ones take their memory
            frames = MakeFrames(functions[i], settings);
        }
        FrameSet &first = frames.drawn.front();
        Check(functions[i], first, &expected[i * std::size(kPositions)]);
        const std::int64_t numbers = CountRandomNumbers(functions[i], first);
        done(functions[i], MeasureOne(functions[i], frames, numbers, settings.seconds));
    }
}

std::vector<Cost> MeasureApart(const char *isa, const std::vector<Function> &functions,
                               const MeasureSettings &settings) {
    return Apart<Cost>(isa, [&] {
        std::vector<Cost> costs;
        Measure(functions, settings,
                [&](const Function &, const Cost &cost) { costs.push_back(cost); });
        return costs;
    });
}

} // namespace hostkit
