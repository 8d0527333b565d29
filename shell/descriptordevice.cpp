// Partial reads over a file descriptor, for the command file.
#include "descriptordevice.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

DescriptorDevice::DescriptorDevice(int descriptor) : m_descriptor(descriptor) {}

qint64 DescriptorDevice::readData(char *data, qint64 maxSize)
{
    ssize_t count;
    do {
        count = ::read(m_descriptor, data, static_cast<size_t>(maxSize));
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        setErrorString(QString::fromLocal8Bit(strerror(errno)));
    // 0 is the end of the file; -1 an error, which ends the reading too.
    return count;
}

qint64 DescriptorDevice::writeData(const char *, qint64)
{
    return -1;
}
