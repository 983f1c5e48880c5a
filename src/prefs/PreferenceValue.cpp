#include "PreferenceValue.h"

#include "PreferenceStore.h"

namespace kestil {

PreferenceValue::PreferenceValue(PreferenceStore &store, const QString &key)
    : QObject(&store), store_(store), key_(key)
{
}

QVariant PreferenceValue::value() const
{
    return store_.object(key_);
}

void PreferenceValue::setValue(const QVariant &value)
{
    store_.set(key_, value);
}

void PreferenceValue::remove()
{
    store_.remove(key_);
}

} // namespace kestil
