#pragma once
// Text logic of slices, bounds and type texts. Slices stay text from end to
// end; these helpers only count dimensions, spell whole-array slices, read
// one dimension of a slice for the editor, and check an editor's row.
// Unreadable numbers read as 0: nothing here reports an error.

#include "config/slicerecords.h"

#include <QString>
#include <QStringList>

namespace SliceModel {

// C style for the languages "c++", "c" and "upc" (compared lower-cased),
// Fortran style for every other language name.
bool isCStyleLanguage(const QString& language);

// Dimensions of a slice text or a type text, in either style.
int getSliceDimCount(const QString& text);

// The slice that selects the whole array. The back end's empty slice, when
// it sent one, wins over the type text whatever the style asked for.
QString getDefaultSlice(const QString& backendEmptySlice, const QString& type, bool cStyle);

// Bound texts "lower:upper" per dimension: the current bounds if there are
// any, otherwise read from the type text.
QStringList getBoundsFromType(const QStringList& currentBounds, const QString& type, bool cStyle);

// A symbolic dimension list, "[ i ][ j ]" or "( i )( j )".
QString getDimensionString(int dimensions, bool cStyle);

// Puts start and end in the order the stride asks for; true if swapped.
bool adjustSliceDetailsForNegativeStride(ArrayDimensionDetails* details);

// Both indexes within the bounds; the stride plays no part.
bool valid2DIndexes(ArrayDimensionDetails* details);

// One dimension of a slice as the editor reads it.
struct SlicePiece {
    bool hasRange = false;
    int start = 0;
    int end = 0;
    int stride = 1;
};

// The slice cut into its dimensions ("][" or ","), brackets removed, empty
// pieces kept.
QStringList splitSlice(const QString& slice, bool cStyle);

// Reads a piece of splitSlice. A piece without ":" has no range; with
// `requireTwoCharacters` a piece shorter than 2 characters (such as the
// single ":" of a whole dimension) has none either.
SlicePiece readSlicePiece(const QString& piece, bool requireTwoCharacters);

} // namespace SliceModel
