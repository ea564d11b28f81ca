#pragma once

#include <string>
#include <vector>

// The computers of the local network as "net view" lists them: lines
// "\\NAME   remark" and a closing "The command completed successfully."
// Windows runs "net view"; Linux runs smbtree and writes its hosts that way.
std::wstring NetViewOutput();

// Starting and stopping the host lookup service (Windows Sockets); the
// messages to show the user, empty when all is well.
std::vector<std::string> SocketsInitialize();
std::string SocketsCleanup();

// The first IPv4 address of a computer name ("192.168.1.7"), empty when the
// name does not resolve.
std::string LookupFirstIPv4(const std::wstring& name);
