#pragma once

#include "generation/GenerationSchema.h"

#include <QString>

namespace kestil {

// The record the model fills with a note's title.
struct GeneratedNoteTitle {
    QString title;

    static GenerationSchema schema();
    // Reads a record that schema().validated() accepted.
    static GeneratedNoteTitle fromJson(const QJsonObject &object);
};

} // namespace kestil
