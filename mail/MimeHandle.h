#pragma once

// Owners of GMime and GLib objects, and the one-time GMime set-up.

#include <QByteArray>

// GLib names a struct member "signals", which Qt defines as a keyword.
#pragma push_macro("signals")
#undef signals
#include <gmime/gmime.h>
#pragma pop_macro("signals")

#include <memory>

namespace tessaly::mail {

struct TGObjectUnref {
    void operator()(void* object) const
    {
        if (object)
            g_object_unref(object);
    }
};
template <class T>
using TGPtr = std::unique_ptr<T, TGObjectUnref>;

// Takes a new reference on an object GMime lends us.
template <class T>
TGPtr<T> RefObject(T* object)
{
    if (object)
        g_object_ref(object);
    return TGPtr<T>(object);
}

// Called before any GMime use; safe from any thread, any number of times.
void EnsureGMime();

// The bytes of a GMime memory stream.
QByteArray StreamBytes(GMimeStream* stream);

// A message parsed from bytes; null when GMime finds no message at all.
TGPtr<GMimeMessage> ParseMimeMessage(const QByteArray& data);

} // namespace tessaly::mail
