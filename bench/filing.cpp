// How quickly the filing of a large project answers: it makes a project of a few big files and
// many small ones, files it through the real ProjectFiler on a task of utility priority, as the
// filing window does, and prints the longest gaps between progress reports. Then it files it
// again several times and stops each one at another moment (in the walk of the original, among
// the small files, inside a big file, in the proof), asked from another thread as the program's
// quit asks, and prints how long the filer took to return and what it left hidden. Last it files
// into a year with leftovers, which it sweeps first. The project and every copy are deleted at
// the end.
//
// usage: quillstow-filing-bench [--in FOLDER] [--gigabytes N] [--big-files N] [--small-files N]
//                               [--stops walk,small,big,proof] [--keep]

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "archive/ProjectFiler.hpp"
#include "support/ByteCount.hpp"
#include "support/Tasks.hpp"

namespace {

namespace fs = std::filesystem;
using namespace quillstow;
using Steady = std::chrono::steady_clock;

struct Options {
    fs::path in = fs::current_path();
    double gigabytes = 20;
    int bigFiles = 4;
    int smallFiles = 20000;
    std::vector<std::string> stops = {"walk", "small", "big", "proof"};
    bool keep = false;
};

double secondsBetween(Steady::time_point from, Steady::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

// Writes `size` bytes of `pattern`, flushes them and drops them from the page cache, so that
// the filing reads the project from the disk as a finished project would be read.
void writeData(const fs::path& path, std::int64_t size, const std::vector<char>& pattern) {
    fs::create_directories(path.parent_path());
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) throw std::runtime_error("can't write " + path.native());
    for (std::int64_t done = 0; done < size;) {
        const auto count = std::min<std::int64_t>(size - done, std::int64_t(pattern.size()));
        // Each block starts elsewhere in the pattern, so no two files are alike.
        const auto shift = std::size_t((done / 4096 + size) % 4096);
        const auto first = std::min<std::int64_t>(count, std::int64_t(pattern.size() - shift));
        if (::write(fd, pattern.data() + shift, std::size_t(first)) != first ||
            (count > first &&
             ::write(fd, pattern.data(), std::size_t(count - first)) != count - first)) {
            ::close(fd);
            throw std::runtime_error("can't write " + path.native());
        }
        done += count;
    }
    ::fdatasync(fd);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
}

// A film project: small notes and cache files first in the listing, then the big media and the
// final cut. About a fifth of the bytes lie in the small files.
fs::path makeProject(const fs::path& root, const Options& options) {
    const fs::path project = root / "Spring Campaign 2023";
    std::vector<char> pattern(8 << 20);
    std::mt19937_64 random(2023);
    for (auto& byte : pattern)
        byte = char(random());
    const auto total = std::int64_t(options.gigabytes * 1e9);
    const std::int64_t smallBytes = total / 5;
    const std::int64_t averageSmall = smallBytes / std::max(1, options.smallFiles);
    std::int64_t written = 0;
    for (int i = 0; i < options.smallFiles; ++i) {
        const std::int64_t size = averageSmall / 2 + std::int64_t(random() % (averageSmall + 1));
        const fs::path folder =
            i % 10 == 0 ? project / "1 Documents"
                        : project / "2 Project Files/Frames" / ("shot-" + std::to_string(i / 500));
        writeData(folder / ("frame-" + std::to_string(i) + ".dpx"), size, pattern);
        written += size;
    }
    const std::int64_t big = (total - written) / std::max(1, options.bigFiles);
    for (int i = 0; i < options.bigFiles; ++i) {
        const bool last = i + 1 == options.bigFiles;
        writeData(last ? project / "6 Finals/Campaign.mp4"
                       : project / "3 Media" / ("A00" + std::to_string(i + 1) + ".mov"),
                  big, pattern);
        written += big;
    }
    std::printf("project: %s in %d files (%d of %s each, %d small ones)\n",
                formatByteCount(written).c_str(), options.smallFiles + options.bigFiles,
                options.bigFiles, formatByteCount(big).c_str(), options.smallFiles);
    return project;
}

struct Report {
    double at;  // seconds since the filing began
    double fraction;
    std::string text;
};

// One filing on a task of utility priority; `stopWhen` is asked on this thread, every 10 ms,
// whether the reports so far call for a stop.
struct Run {
    std::vector<Report> reports;
    double took = 0;
    double stopAt = -1;  // seconds since the filing began; -1 when never stopped
    double outcomeAt = -1;
    ProjectFilingOutcome outcome;
};

Run fileOnce(const ProjectFiler& filer, const ProjectFilingPlan& plan,
             const std::function<bool(const std::vector<Report>&)>& stopWhen) {
    Run run;
    std::mutex mutex;
    std::stop_source stop;
    std::atomic<bool> ended = false;
    const auto start = Steady::now();
    std::thread task([&] {
        lowerToUtilityPriority();
        run.outcome = filer.file(
            plan,
            [&](double fraction, const std::string& text) {
                const std::lock_guard lock(mutex);
                run.reports.push_back({secondsBetween(start, Steady::now()), fraction, text});
            },
            stop.get_token(),
            [&](const ProjectFilingOutcome&) {
                run.outcomeAt = secondsBetween(start, Steady::now());
            });
        run.took = secondsBetween(start, Steady::now());
        ended = true;
    });
    while (!ended && stopWhen) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const std::lock_guard lock(mutex);
        if (!stop.stop_requested() && stopWhen(run.reports)) {
            run.stopAt = secondsBetween(start, Steady::now());
            stop.request_stop();
        }
    }
    task.join();
    return run;
}

void printGaps(const Run& run) {
    struct Gap {
        double seconds;
        std::string between;
        double at;
    };
    std::vector<Gap> gaps;
    double last = 0;
    std::string lastText = "the start";
    const auto described = [](const Report& report) {
        char fraction[16];
        std::snprintf(fraction, sizeof fraction, " at %.3f", report.fraction);
        return "\"" + report.text + "\"" + fraction;
    };
    for (const auto& report : run.reports) {
        gaps.push_back({report.at - last, lastText + " and " + described(report), last});
        last = report.at;
        lastText = described(report);
    }
    gaps.push_back({run.took - last, lastText + " and the return", last});
    std::sort(gaps.begin(), gaps.end(), [](auto& a, auto& b) { return a.seconds > b.seconds; });
    std::printf("%.1f s, %zu reports, %s\n", run.took, run.reports.size(),
                ProjectFiler::summary(run.outcome).c_str());
    std::printf("longest gaps between progress reports:\n");
    for (std::size_t i = 0; i < std::min<std::size_t>(5, gaps.size()); ++i) {
        std::printf("  %.3f s from %.1f s, between %s\n", gaps[i].seconds, gaps[i].at,
                    gaps[i].between.c_str());
    }
}

// When each stop is asked for: the walk of the original, the small files, a big file some
// hundreds of megabytes in, and the proof.
std::function<bool(const std::vector<Report>&)> trigger(const std::string& where) {
    if (where == "walk") return [](const auto& reports) { return !reports.empty(); };
    if (where == "small") {
        return
            [](const auto& reports) { return !reports.empty() && reports.back().fraction >= 0.3; };
    }
    if (where == "big") {
        return [](const auto& reports) {
            const auto inBigFile = std::count_if(reports.begin(), reports.end(), [](auto& r) {
                return r.text.find(".mov (") != std::string::npos;
            });
            return inBigFile >= 20;
        };
    }
    return [](const auto& reports) { return !reports.empty() && reports.back().fraction >= 1.0; };
}

// What a stopped filing left: never its final name; a hidden rest, for the next filing to sweep.
std::string leftInYear(const ProjectFilingPlan& plan) {
    if (fs::exists(plan.destination)) return "HALF-FILED UNDER ITS NAME";
    std::int64_t bytes = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(plan.destination.parent_path(), error), end;
         !error && entry != end; entry.increment(error)) {
        if (entry->is_regular_file(error)) bytes += std::int64_t(entry->file_size(error));
    }
    return bytes == 0 ? "nothing left in the year"
                      : formatByteCount(bytes) + " left hidden in the year for the next sweep";
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string flag = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw std::invalid_argument(flag + " needs a value");
            return argv[++i];
        };
        if (flag == "--in") {
            options.in = value();
        } else if (flag == "--gigabytes") {
            options.gigabytes = std::stod(value());
        } else if (flag == "--big-files") {
            options.bigFiles = std::stoi(value());
        } else if (flag == "--small-files") {
            options.smallFiles = std::stoi(value());
        } else if (flag == "--stops") {
            options.stops.clear();
            std::string list = value();
            for (std::size_t at = 0; at <= list.size();) {
                const auto comma = std::min(list.find(',', at), list.size());
                if (comma > at) options.stops.push_back(list.substr(at, comma - at));
                at = comma + 1;
            }
        } else if (flag == "--keep") {
            options.keep = true;
        } else {
            throw std::invalid_argument("unknown option " + flag);
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    // Each figure as it comes, also into a file.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Options options;
    try {
        options = parse(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr,
                     "%s\nusage: quillstow-filing-bench [--in FOLDER] [--gigabytes N] "
                     "[--big-files N] [--small-files N] [--stops walk,small,big,proof] [--keep]\n",
                     error.what());
        return 64;
    }
    const fs::path root = options.in / ("quillstow-filing-bench-" + std::to_string(::getpid()));
    fs::create_directories(root);
    int status = 0;
    try {
        const auto made = Steady::now();
        const fs::path project = makeProject(root / "work", options);
        std::printf("made in %.1f s\n", secondsBetween(made, Steady::now()));

        LocalFileSystem fileSystem;
        SystemWallClock wallClock;
        MonotonicClock clock;
        const ProjectFiler filer(fileSystem, ProjectManifestWriter(), wallClock, clock);
        const fs::path archive = root / "Archive";

        const ProjectFilingPlan full{project, archive / "2023/Spring Campaign 2023", 2023,
                                     "Spring Campaign 2023"};
        const Run run = fileOnce(filer, full, nullptr);
        std::printf("full filing: ");
        printGaps(run);
        if (!run.outcome.isSuccess()) status = 1;
        fs::remove_all(archive);

        int year = 2024;
        std::optional<ProjectFilingPlan> leftBehind;
        for (const auto& where : options.stops) {
            const ProjectFilingPlan plan{project, archive / std::to_string(year) / full.name, year,
                                         full.name};
            ++year;
            const Run stopped = fileOnce(filer, plan, trigger(where));
            if (stopped.stopAt < 0 || stopped.outcome.isSuccess()) {
                std::printf("stop %-6s: the filing ended before the stop\n", where.c_str());
                continue;
            }
            std::printf(
                "stop %-6s at %5.1f s, after \"%s\": outcome after %.3f s, returned after "
                "%.3f s; %s\n",
                where.c_str(), stopped.stopAt,
                stopped.reports.empty() ? "" : stopped.reports.back().text.c_str(),
                stopped.outcomeAt - stopped.stopAt, stopped.took - stopped.stopAt,
                leftInYear(plan).c_str());
            if (fs::exists(plan.destination)) status = 1;
            const fs::path year = plan.destination.parent_path();
            if (fs::exists(year) && !fs::is_empty(year)) leftBehind = plan;
        }
        // The next filing into a year with leftovers sweeps them first.
        if (leftBehind) {
            const Run again = fileOnce(filer, *leftBehind, nullptr);
            std::printf("filed again into %d, sweeping the leftovers first: ", leftBehind->year);
            printGaps(again);
            if (!again.outcome.isSuccess() ||
                std::distance(fs::directory_iterator(leftBehind->destination.parent_path()),
                              fs::directory_iterator()) != 1) {
                std::printf("THE YEAR HOLDS MORE THAN THE PROJECT\n");
                status = 1;
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        status = 1;
    }
    if (!options.keep) fs::remove_all(root);
    return status;
}
