#pragma once

#include <QString>
#include <functional>

class QObject;

// --preferences and --jobs: the instance already running for these settings
// shows the window; without one, the new instance starts and shows it.
namespace WindowRequest
{
// True when a running instance took the request ("preferences" or "jobs").
bool sendToRunning(const QString& window);
// Takes the requests of later starts for as long as parent lives.
void listen(QObject* parent, std::function<void(const QString&)> show);
} // namespace WindowRequest
