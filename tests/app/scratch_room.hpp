// GUI tests' private room: the simulated cameras' runtime folder and the body-model cache
// inside a test's scratch folder, so windows of tests running side by side never meet.
#pragma once

#include <QTemporaryDir>
#include <QtGlobal>

// The default simulated room, its folders inside `scratch`, and no wait for the body model.
inline void useScratchRoom(const QTemporaryDir& scratch) {
    qputenv("PYRA_RUNTIME_DIR", scratch.filePath("ipc").toLocal8Bit());
    qputenv("PYRA_MODEL_CACHE", scratch.filePath("models").toLocal8Bit());
    qputenv("PYRA_MODEL_OPTIMIZE_SECONDS", "0");
    qunsetenv("PYRA_SIM_SCENE");
}
