// The one way a headless command learns that its fusion never came up, so that every
// command says it in the same words and ends with the same status.
#pragma once

#include <QObject>

#include <functional>

#include "fusion/fusion_worker.hpp"

// When `worker` reports an error, or its thread ends, while `pending()` holds (the session
// neither started nor ended), says on standard error that the fusion could not start and
// calls `failed` on `session`'s thread.
void onFusionStartFailure(FusionWorker& worker, QObject* session, std::function<bool()> pending,
                          std::function<void()> failed);
