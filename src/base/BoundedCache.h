#pragma once

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

#include <list>
#include <memory>
#include <utility>

namespace kestil {

// A thread-safe cache with a count limit and a total cost limit. When either
// is exceeded the least recently used entries are evicted. Values are held by
// shared pointer so that a reader keeps its entry alive after an eviction.
template <typename Key, typename Value> class BoundedCache {
public:
    BoundedCache(qsizetype countLimit, qint64 totalCostLimit)
        : countLimit_(countLimit), totalCostLimit_(totalCostLimit)
    {
    }

    std::shared_ptr<const Value> object(const Key &key)
    {
        QMutexLocker lock(&mutex_);
        auto it = index_.find(key);
        if (it == index_.end())
            return nullptr;
        order_.splice(order_.begin(), order_, it.value());
        return it.value()->value;
    }

    void setObject(const Key &key, std::shared_ptr<const Value> value, qint64 cost)
    {
        QMutexLocker lock(&mutex_);
        removeLocked(key);
        order_.push_front(Entry{key, std::move(value), cost});
        index_.insert(key, order_.begin());
        totalCost_ += cost;
        while (!order_.empty() && (qsizetype(order_.size()) > countLimit_ || totalCost_ > totalCostLimit_))
            removeLocked(order_.back().key);
    }

    void removeObject(const Key &key)
    {
        QMutexLocker lock(&mutex_);
        removeLocked(key);
    }

    void removeAll()
    {
        QMutexLocker lock(&mutex_);
        order_.clear();
        index_.clear();
        totalCost_ = 0;
    }

    qsizetype count() const
    {
        QMutexLocker lock(&mutex_);
        return qsizetype(order_.size());
    }

    qint64 totalCost() const
    {
        QMutexLocker lock(&mutex_);
        return totalCost_;
    }

private:
    struct Entry {
        Key key;
        std::shared_ptr<const Value> value;
        qint64 cost;
    };

    void removeLocked(const Key &key)
    {
        auto it = index_.find(key);
        if (it == index_.end())
            return;
        totalCost_ -= it.value()->cost;
        order_.erase(it.value());
        index_.erase(it);
    }

    mutable QMutex mutex_;
    qsizetype countLimit_;
    qint64 totalCostLimit_;
    qint64 totalCost_ = 0;
    std::list<Entry> order_;
    QHash<Key, typename std::list<Entry>::iterator> index_;
};

} // namespace kestil
