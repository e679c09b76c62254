#include "HvReportRunner.h"

#include "HvIssueCollector.h"
#include "HvTrace.h"

#include <exception>

namespace Hv::Tray {

const char* const COLLECT_LOGS_TITLE = "Collect logs into a ZIP file";
const char* const COLLECTING_LOGS_TITLE = "Collecting logs\u2026";

ReportRunner::Shared ReportRunner::create(Post post, Report report, Cancel cancel)
{
    HV_TRACE_FREE();
    if (!report) {
        report = &IssueCollector::prepareReport;
        cancel = &IssueCollector::cancelReport;
    }
    return Shared(new ReportRunner(std::move(post), std::move(report), std::move(cancel)));
}

ReportRunner::ReportRunner(Post post, Report report, Cancel cancel)
    : m_post(std::move(post))
    , m_report(std::move(report))
    , m_cancel(std::move(cancel))
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
        bool abandoned = false;
        {
            const std::lock_guard<std::mutex> lock(state->mutex);
            state->done = true;
            abandoned = state->abandoned;
        }
        state->finished.notify_all();
        // Nobody waits for the result any more: the application is ending.
        if (abandoned)
            return;
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
    const auto done = [this] { return m_state->done; };
    if (m_state->finished.wait_for(lock, limit, done)) {
        lock.unlock();
        m_worker.join();
        return true;
    }
    // Its result is not wanted any more; cancelled, it removes what it has written.
    m_state->abandoned = true;
    if (m_cancel) {
        HV_LOG_WARN("The report is still being prepared after " << limit.count() << " ms; cancelling it");
        lock.unlock();
        m_cancel();
        lock.lock();
        if (m_state->finished.wait_for(lock, CANCEL_WAIT, done)) {
            lock.unlock();
            m_worker.join();
            return false;
        }
    }
    lock.unlock();
    HV_LOG_WARN("The report is still being prepared; not waiting any longer");
    m_worker.detach();
    return false;
}

} // namespace Hv::Tray
