#pragma once

// Builds the diagnostics report on one worker thread so that the user-interface thread keeps
// pumping statuses meanwhile. One report at a time; its result comes back on the user-interface
// thread through the shell's `Post`. Every member is called on the user-interface thread.

#include <boost/filesystem/path.hpp>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace Hv::Tray {

// The menu entry's text, and its text while a report is being built.
extern const char* const COLLECT_LOGS_TITLE;
extern const char* const COLLECTING_LOGS_TITLE;

class ReportRunner : public std::enable_shared_from_this<ReportRunner> {
public:
    using Shared = std::shared_ptr<ReportRunner>;
    using Task = std::function<void()>;
    // Queues a task to run on the user-interface thread; called from the worker.
    using Post = std::function<void(Task)>;
    using Report = std::function<boost::filesystem::path()>;
    // Asks the running report to give up; called from the user-interface thread.
    using Cancel = std::function<void()>;
    // The archive's path, or an empty path when the report failed.
    using OnDone = std::function<void(const boost::filesystem::path&)>;

    // How long quitting waits for a report that is still being built, and then for the report
    // to clean up once it has been cancelled.
    static constexpr std::chrono::seconds QUIT_WAIT{10};
    static constexpr std::chrono::seconds CANCEL_WAIT{2};

    // Without a report: the diagnostics report, cancelled through IssueCollector::cancelReport.
    static Shared create(Post post, Report report = {}, Cancel cancel = {});
    ~ReportRunner();

    ReportRunner(const ReportRunner&) = delete;
    ReportRunner& operator=(const ReportRunner&) = delete;

    // Starts a report; false (and nothing happens) while one is running.
    bool start(OnDone onDone);
    bool isRunning() const { return m_running; }
    // At quit: waits for a running report at most `limit` and drops its result. False when the
    // report was still running: it is then cancelled and waited for CANCEL_WAIT more, and after
    // that left to the end of the process.
    bool finish(std::chrono::milliseconds limit = QUIT_WAIT);

private:
    // What the worker shares with the user-interface thread.
    struct State {
        std::mutex mutex;
        std::condition_variable finished;
        bool done = false;
        bool abandoned = false;
    };

    ReportRunner(Post post, Report report, Cancel cancel);
    void deliver(const boost::filesystem::path& archive);

    Post m_post;
    Report m_report;
    Cancel m_cancel;
    OnDone m_onDone;
    std::shared_ptr<State> m_state;
    std::thread m_worker;
    bool m_running = false;
};

} // namespace Hv::Tray
