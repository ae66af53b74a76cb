#pragma once

// Owners of libpff handles. Every libpff handle the program holds lives in
// one of these.

#include <QString>
#include <libpff.h>

#include <utility>

namespace tessaly::pst {

class TPffError {
public:
    TPffError() = default;
    ~TPffError() { Reset(); }
    TPffError(const TPffError&) = delete;
    TPffError& operator=(const TPffError&) = delete;

    libpff_error_t** Out()
    {
        Reset();
        return &m_error;
    }
    explicit operator bool() const { return m_error != nullptr; }
    QString Text() const
    {
        if (!m_error)
            return {};
        char text[1024] = {};
        if (libpff_error_sprint(m_error, text, sizeof text) <= 0)
            return QStringLiteral("unknown libpff error");
        return QString::fromUtf8(text).trimmed();
    }
    void Reset()
    {
        if (m_error)
            libpff_error_free(&m_error);
    }

private:
    libpff_error_t* m_error = nullptr;
};

template <class T, int (*Free)(T**, libpff_error_t**)>
class TPffHandle {
public:
    TPffHandle() = default;
    ~TPffHandle() { Reset(); }
    TPffHandle(const TPffHandle&) = delete;
    TPffHandle& operator=(const TPffHandle&) = delete;
    TPffHandle(TPffHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    TPffHandle& operator=(TPffHandle&& other) noexcept
    {
        if (this != &other) {
            Reset();
            m_handle = std::exchange(other.m_handle, nullptr);
        }
        return *this;
    }

    T* Get() const { return m_handle; }
    // For libpff calls that create a handle; what was held is freed first.
    T** Out()
    {
        Reset();
        return &m_handle;
    }
    explicit operator bool() const { return m_handle != nullptr; }
    void Reset()
    {
        if (m_handle)
            Free(&m_handle, nullptr);
        m_handle = nullptr;
    }

private:
    T* m_handle = nullptr;
};

// Closes the file before freeing it.
inline int FreePffFile(libpff_file_t** file, libpff_error_t** error)
{
    libpff_file_close(*file, nullptr);
    return libpff_file_free(file, error);
}

using TPffFileHandle = TPffHandle<libpff_file_t, FreePffFile>;
using TPffItemHandle = TPffHandle<libpff_item_t, libpff_item_free>;
using TPffRecordSetHandle = TPffHandle<libpff_record_set_t, libpff_record_set_free>;
using TPffRecordEntryHandle = TPffHandle<libpff_record_entry_t, libpff_record_entry_free>;

} // namespace tessaly::pst
