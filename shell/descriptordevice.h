// Read-only device over an open file descriptor whose reads return what the
// descriptor has at the moment (waiting only when it has nothing), so that a
// command file that is a pipe, a named pipe or a slow writer's output is read
// line by line as it comes and up to its real end.
#pragma once

#include <QIODevice>

class DescriptorDevice : public QIODevice
{
public:
    // The descriptor stays owned by the caller.
    explicit DescriptorDevice(int descriptor);
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    int m_descriptor;
};
