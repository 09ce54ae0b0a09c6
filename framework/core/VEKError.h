#pragma once

#include <QString>
#include <QtGlobal>

// The error object of the framework. An operation that can fail returns false or null and
// fills its last argument, a `VEKError*` the caller may leave null. A default-constructed
// error is "absent": alert() on it does nothing, which much of the program relies on.
class VEKError {
public:
    VEKError() = default;
    VEKError(QString domain, qint64 code, QString description, QString reason = {});

    bool isNull() const { return m_domain.isEmpty() && m_description.isEmpty(); }
    explicit operator bool() const { return !isNull(); }

    const QString &domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    // The sentence shown to the user.
    const QString &localizedDescription() const { return m_description; }
    // Extra detail (the system's message, the file name); may be empty.
    const QString &failureReason() const { return m_reason; }
    // Description and reason in one line, as the CLI and the log print it.
    QString text() const;

    // Shows the error through the installed presenter and returns when it has been seen.
    // Does nothing on an absent error. Main thread only.
    void alert() const;

    // Stores `e` in `out` when the caller asked for errors.
    static void set(VEKError *out, VEKError e)
    {
        if (out)
            *out = std::move(e);
    }

private:
    QString m_domain;
    qint64 m_code = 0;
    QString m_description;
    QString m_reason;
};

// How alerts reach the user: a modal box in the windowed player, a line on standard error in
// the CLI. One presenter is installed per process; without one, alerts go to standard error.
class VEKAlertPresenter {
public:
    virtual ~VEKAlertPresenter() = default;
    virtual void present(const VEKError &error) = 0;

    // Installs `presenter` (not owned); null restores the standard-error presenter.
    static void install(VEKAlertPresenter *presenter);
    static VEKAlertPresenter *current();
};

// Writes "Quivera: <description>: <reason>" to standard error.
class VEKStderrAlertPresenter final : public VEKAlertPresenter {
public:
    void present(const VEKError &error) override;
};
