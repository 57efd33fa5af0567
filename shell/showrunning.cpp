#include "shell/actions.h"
#include "shell/runningconfig.h"

Outcome actionShowRunning(Session *session, const Arguments &) {
    std::vector<std::string> lines;
    const CallEnd end = runningConfigRead(&session->connection, &lines, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "");
    }
    Report report;
    reportLines(&report, "lines", std::move(lines));
    return actionShow(session, report);
}
