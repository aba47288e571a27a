#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace tesk::test {

/// Sets the environment variable `name` to `value` while it lives, and puts back what was there
/// (or nothing) when it goes, however the test ends.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const QByteArray& value)
        : mName(name)
        , mWasSet(qEnvironmentVariableIsSet(name))
        , mPrevious(qgetenv(name)) {
        qputenv(name, value);
    }
    ~ScopedEnvironment() {
        if (mWasSet)
            qputenv(mName, mPrevious);
        else
            qunsetenv(mName);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* mName;
    bool mWasSet;
    QByteArray mPrevious;
};

} // namespace tesk::test
