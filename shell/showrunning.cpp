#include "shell/actions.h"
#include "shell/exactconfig.h"

Outcome actionShowRunning(Session *session, const Arguments &) {
    ExactConfig config;
    const CallEnd end = exactConfigRead(&session->connection, &config, &session->error);
    if (end != CallEnd::done) {
        return actionEnd(session, end, "");
    }
    Report report;
    reportLines(&report, "lines", exactConfigShown(config));
    return actionShow(session, report);
}
