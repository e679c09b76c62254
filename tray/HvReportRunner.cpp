#include "HvReportRunner.h"

#include "HvIssueCollector.h"
#include "HvPlatform.h"
#include "HvTrace.h"

#include <exception>

namespace Hv::Tray {

const char* const COLLECT_LOGS_TITLE = "Collect logs into a ZIP file";
const char* const COLLECTING_LOGS_TITLE = "Collecting logs\u2026";

ReportRunner::Shared ReportRunner::create(Post post, Report report)
{
    HV_TRACE_FREE();
    return Shared(new ReportRunner(std::move(post), report ? std::move(report) : Report(&IssueCollector::prepareReport)));
}

ReportRunner::ReportRunner(Post post, Report report)
    : m_post(std::move(post))
    , m_report(std::move(report))
{
    HV_TRACE();
}

ReportRunner::~ReportRunner()
{
    HV_TRACE();
    finish();
}

bool ReportRunner::start(OnDone onDone)
{
    HV_TRACE(m_running);
    if (m_running) {
        HV_LOG_INFO("A report is being prepared already; not starting another");
        return false;
    }
    // The folder getters fill their caches unlocked on first use: let that happen here, on the
    // thread that also asks them for the socket's folder, before the worker reads them.
    tempDirectory();
    downloadsDirectory();
    logsDirectory();

    m_onDone = std::move(onDone);
    m_state = std::make_shared<State>();
    m_running = true;
    m_worker = std::thread([state = m_state, report = m_report, post = m_post, self = weak_from_this()] {
        boost::filesystem::path archive;
        try {
            archive = report();
        } catch (const std::exception& error) {
            HV_LOG_ERROR("Unable to prepare the report: " << error.what());
        }
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            state->done = true;
            // Nobody waits for the result any more: the application is ending.
            if (state->abandoned)
                return;
        }
        state->finished.notify_all();
        post([self, archive] {
            if (const Shared runner = self.lock())
                runner->deliver(archive);
        });
    });
    return true;
}

void ReportRunner::deliver(const boost::filesystem::path& archive)
{
    HV_TRACE(archive, m_running);
    // finish() has taken the report over already.
    if (!m_running)
        return;
    // The worker has posted this as its last step: the join is immediate.
    m_worker.join();
    m_running = false;
    const OnDone onDone = std::move(m_onDone);
    m_onDone = nullptr;
    if (onDone)
        onDone(archive);
}

bool ReportRunner::finish(std::chrono::milliseconds limit)
{
    HV_TRACE(m_running, limit.count());
    if (!m_running)
        return true;
    m_running = false;
    m_onDone = nullptr;
    std::unique_lock<std::mutex> lock(m_state->mutex);
    if (m_state->finished.wait_for(lock, limit, [this] { return m_state->done; })) {
        lock.unlock();
        m_worker.join();
        return true;
    }
    m_state->abandoned = true;
    lock.unlock();
    HV_LOG_WARN("The report is still being prepared after " << limit.count() << " ms; not waiting any longer");
    m_worker.detach();
    return false;
}

} // namespace Hv::Tray
