#pragma once

#include <QString>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

// An unexpected failure inside a handler. The guard around every handler
// reports it and returns to the event loop; it never crosses Qt's loop.
class RuntimeError : public std::exception
{
public:
    RuntimeError(int number, QString description)
        : m_number(number), m_description(std::move(description)),
          m_what(QStringLiteral("Run-time error '%1': %2").arg(number).arg(m_description).toUtf8())
    {
    }
    int number() const { return m_number; }
    const QString& description() const { return m_description; }
    const char* what() const noexcept override { return m_what.constData(); }

private:
    int m_number;
    QString m_description;
    QByteArray m_what;
};

namespace rt
{
constexpr int Overflow = 6;
constexpr int SubscriptOutOfRange = 9;
constexpr int BadFileNameOrNumber = 52;
constexpr int FileNotFound = 53;
constexpr int PermissionDenied = 70;
constexpr int PathNotFound = 76;
constexpr int ObjectAlreadyLoaded = 360;
constexpr int ObjectRequired = 424;
} // namespace rt

[[noreturn]] void RaiseError(int number, const QString& description);
[[noreturn]] void RaiseError(int number); // with the standard description

QString DescriptionOf(int number);

// Reports a caught error: "Run-time error 'N': description" to the user and the log.
void ReportRuntimeError(const RuntimeError& error);

// Logs "Passed over: Run-time error 'N': description".
void ReportPassedOver(int number, const QString& description);

// Runs a handler body; any exception is reported and swallowed.
template <typename F> void RunGuarded(F&& body) noexcept
{
    try {
        body();
    } catch (const RuntimeError& e) {
        ReportRuntimeError(e);
    } catch (const std::exception& e) {
        ReportRuntimeError(RuntimeError(
            51, QStringLiteral("Internal error (%1)").arg(QString::fromLocal8Bit(e.what()))));
    } catch (...) {
        ReportRuntimeError(RuntimeError(51, QStringLiteral("Internal error")));
    }
}

// A failure caught by TryStep, to be reported later.
struct PassedOver {
    int number = 0;
    QString description;
};

// Runs a step; a failure comes back instead of being reported.
template <typename F> std::optional<PassedOver> TryStep(F&& step)
{
    try {
        step();
        return std::nullopt;
    } catch (const RuntimeError& e) {
        return PassedOver{e.number(), e.description()};
    } catch (const std::exception& e) {
        return PassedOver{51, QString::fromLocal8Bit(e.what())};
    }
}

// Runs one step whose failure is passed over: the log says which error was
// skipped and the caller goes on with its next step. False when it failed.
template <typename F> bool ResumeNext(F&& step)
{
    const std::optional<PassedOver> failure = TryStep(std::forward<F>(step));
    if (failure)
        ReportPassedOver(failure->number, failure->description);
    return !failure;
}

// The steps of a routine: a failing step ends the routine until skipErrors
// is switched on; from then on each failing step is passed over.
struct Steps {
    bool skipErrors = false;
    template <typename F> void operator()(F&& step)
    {
        if (skipErrors)
            ResumeNext(step);
        else
            step();
    }
};

// Wraps a handler for connect(): the slot runs inside the guard. A handler
// that takes no arguments ignores those of the signal.
template <typename F> auto Guarded(F handler)
{
    return [handler](auto&&... args) mutable {
        RunGuarded([&] {
            if constexpr (std::is_invocable_v<F&, decltype(args)...>)
                handler(std::forward<decltype(args)>(args)...);
            else
                handler();
        });
    };
}
