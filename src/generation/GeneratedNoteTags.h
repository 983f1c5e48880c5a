#pragma once

#include "generation/GenerationSchema.h"

#include <QStringList>

namespace kestil {

// The record the model fills with a note's topic tags: one to five.
struct GeneratedNoteTags {
    QStringList tags;

    static GenerationSchema schema();
    // Reads a record that schema().validated() accepted.
    static GeneratedNoteTags fromJson(const QJsonObject &object);
};

} // namespace kestil
