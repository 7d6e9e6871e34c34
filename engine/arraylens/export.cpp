#include "export.h"

#include "element.h"
#include "filter.h"
#include "format.h"
#include "prepare.h"
#include "slice.h"
#include "table.h"
#include "walk.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

namespace arraylens {

namespace {

// Buffered writes to a file that only becomes `path` when it is complete.
class FileSink {
public:
    explicit FileSink(const std::string& path) : path_(path), part_(path + ".part") {}
    ~FileSink() {
        if (file_) {
            std::fclose(file_);
            std::remove(part_.c_str());
        }
    }
    Status open() {
        file_ = std::fopen(part_.c_str(), "wb");
        return file_ ? Status::Ok() : failure();
    }
    Status put(const void* bytes, std::size_t size) {
        const auto* b = static_cast<const unsigned char*>(bytes);
        buffer_.insert(buffer_.end(), b, b + size);
        return buffer_.size() >= kFlushBytes ? flush() : Status::Ok();
    }
    Status put(const std::string& text) { return put(text.data(), text.size()); }
    Status flush() {
        if (!buffer_.empty() &&
            std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size())
            return failure();
        buffer_.clear();
        return Status::Ok();
    }
    // Writes `bytes` at the start of the file (the .npy header, once the
    // count is known).
    Status rewriteStart(const std::string& bytes) {
        if (Status s = flush(); !s)
            return s;
        if (std::fseek(file_, 0, SEEK_SET) != 0 ||
            std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size())
            return failure();
        return Status::Ok();
    }
    Status close() {
        if (Status s = flush(); !s)
            return s;
        const int closed = std::fclose(file_);
        file_ = nullptr;
        if (closed != 0 || std::rename(part_.c_str(), path_.c_str()) != 0) {
            const Status s = failure();
            std::remove(part_.c_str());
            return s;
        }
        return Status::Ok();
    }

private:
    Status failure() const {
        return Error{ErrorCode::BadRequest,
                     "Cannot write '" + path_ + "': " + std::strerror(errno) + "."};
    }
    static constexpr std::size_t kFlushBytes = 1u << 20;
    std::string path_, part_;
    std::FILE* file_ = nullptr;
    std::vector<unsigned char> buffer_;
};

bool endsWith(std::string_view path, std::string_view ext) {
    if (path.size() < ext.size())
        return false;
    for (std::size_t i = 0; i < ext.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(path[path.size() - ext.size() + i])) != ext[i])
            return false;
    return true;
}

std::string shapeText(const std::vector<std::int64_t>& shape) {
    if (shape.size() == 1)
        return "(" + std::to_string(shape[0]) + ",)";
    std::string s = "(";
    for (std::size_t i = 0; i < shape.size(); ++i)
        s += (i ? ", " : "") + std::to_string(shape[i]);
    return s + ")";
}

// The header of numpy's format: magic, version, length, then a Python
// dictionary padded with blanks and ended by a newline so that the data
// begins on a 64-byte boundary. Padded to at least `minTotal` bytes, so that
// a header rewritten with the final count keeps its length.
std::string npyHeader(const std::string& dtype, bool fortran, const std::string& shape,
                      std::size_t minTotal = 0) {
    std::string dict = "{'descr': '" + dtype +
                       "', 'fortran_order': " + (fortran ? "True" : "False") +
                       ", 'shape': " + shape + ", }";
    // Version 1.0 has a 2-byte length, 2.0 a 4-byte one.
    const bool v2 = dict.size() + 1 + 10 > 65535;
    const std::size_t prefix = v2 ? 12 : 10;
    std::size_t total = prefix + dict.size() + 1;
    total = std::max(total, minTotal);
    total = (total + 63) / 64 * 64;
    dict.append(total - prefix - dict.size() - 1, ' ');
    dict += '\n';
    const std::size_t len = dict.size();
    std::string h = "\x93NUMPY";
    h += static_cast<char>(v2 ? 2 : 1);
    h += '\0';
    h += static_cast<char>(len & 0xff);
    h += static_cast<char>((len >> 8) & 0xff);
    if (v2) {
        h += static_cast<char>((len >> 16) & 0xff);
        h += static_cast<char>((len >> 24) & 0xff);
    }
    return h + dict;
}

// The element's bytes as numpy reads them: as they are, logicals as one
// byte 0 or 1.
template <Repr R>
std::size_t npyBytes(const unsigned char* p, unsigned char* out, std::size_t size) {
    using T = ReprTraits<R>;
    if constexpr (T::isLogical) {
        out[0] = T::raw(p) != 0 ? 1 : 0;
        return 1;
    } else {
        std::memcpy(out, p, size);
        return size;
    }
}

template <Repr R>
Status writeNpyElements(const TilePlan& plan, Reader& reader, const Filter& filter,
                        const std::atomic<bool>* cancel, FileSink& sink, std::uint64_t& written) {
    TileBuffer buffer;
    const std::size_t esize = plan.elementSize();
    std::vector<unsigned char> out;
    unsigned char pass[Filter::kBlock];
    for (std::uint64_t t = 0; t < plan.tileCount(); ++t) {
        if (cancel && cancel->load())
            return Error{ErrorCode::Cancelled, "The request was cancelled."};
        if (Status s = plan.read(reader, t, buffer); !s)
            return s;
        out.resize(static_cast<std::size_t>(buffer.view.count) * esize);
        std::size_t at = 0;
        for (const ElementRun& run : buffer.view.runs) {
            const unsigned char* p = run.first;
            for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
                const std::size_t m = std::min(Filter::kBlock, run.count - k0);
                filter.matchBlock<R>(p, run.step, m, pass);
                for (std::size_t k = 0; k < m; ++k, p += run.step) {
                    if (!pass[k])
                        continue;
                    at += npyBytes<R>(p, out.data() + at, esize);
                    ++written;
                }
            }
        }
        if (Status s = sink.put(out.data(), at); !s)
            return s;
    }
    return Status::Ok();
}

Result<ExportSummary> writeNpy(const ArrayDescriptor& array, Reader& reader, const Slice& slice,
                               const Filter& filter, const std::string& path,
                               const ExportOptions& options) {
    Result<std::string> dtype = npyDtype(array.kind);
    if (!dtype)
        return dtype.error();
    ExportSummary summary;
    summary.format = ExportFormat::Npy;
    summary.dtype = *dtype;
    Layout layout = layoutOf(array, slice.dims);
    if (filter.empty()) {
        for (std::size_t d : slice.keptDims())
            summary.shape.push_back(slice.dims[d].count);
        // numpy's Fortran order is the first index fastest: the engine's
        // row-major walk over the kept dimensions taken in reverse.
        if (array.language == Language::Fortran && summary.shape.size() > 1) {
            summary.fortranOrder = true;
            std::reverse(layout.extents.begin(), layout.extents.end());
            std::reverse(layout.byteStrides.begin(), layout.byteStrides.end());
        }
    }
    const TilePlan plan(layout, options.tileBytes);
    FileSink sink(path);
    if (Status s = sink.open(); !s)
        return s.error();
    // With a filter the count is known at the end: the header is written
    // with room for any count, and again when it is known.
    const std::size_t room = npyHeader(summary.dtype, false, "(18446744073709551615,)").size();
    const std::string first =
        filter.empty() ? npyHeader(summary.dtype, summary.fortranOrder, shapeText(summary.shape))
                       : npyHeader(summary.dtype, false, "(0,)", room);
    if (Status s = sink.put(first); !s)
        return s.error();
    Status s = withRepr(kindInfo(array.kind).repr, [&](auto tag) {
        return writeNpyElements<decltype(tag)::repr>(plan, reader, filter, options.cancel, sink,
                                                     summary.count);
    });
    if (!s)
        return s.error();
    if (!filter.empty()) {
        summary.shape = {static_cast<std::int64_t>(summary.count)};
        if (Status r =
                sink.rewriteStart(npyHeader(summary.dtype, false, shapeText(summary.shape), room));
            !r)
            return r.error();
    }
    if (Status c = sink.close(); !c)
        return c.error();
    return summary;
}

// Numbers as CSV wants them: floating point shortest, the rest decimal.
DataFormat csvFormat(ElementKind kind) {
    return isFloatingKind(kind) ? DataFormat::Automatic : DataFormat::Decimal;
}

template <Repr R>
Status writeCsvValues(const TilePlan& plan, Reader& reader, const Filter& filter, ElementKind kind,
                      const std::atomic<bool>* cancel, FileSink& sink, std::uint64_t& written) {
    TileBuffer buffer;
    unsigned char pass[Filter::kBlock];
    const DataFormat format = csvFormat(kind);
    std::string text;
    for (std::uint64_t t = 0; t < plan.tileCount(); ++t) {
        if (cancel && cancel->load())
            return Error{ErrorCode::Cancelled, "The request was cancelled."};
        if (Status s = plan.read(reader, t, buffer); !s)
            return s;
        text.clear();
        for (const ElementRun& run : buffer.view.runs) {
            const unsigned char* p = run.first;
            for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
                const std::size_t m = std::min(Filter::kBlock, run.count - k0);
                filter.matchBlock<R>(p, run.step, m, pass);
                for (std::size_t k = 0; k < m; ++k, p += run.step) {
                    if (!pass[k])
                        continue;
                    text += formatElement(kind, p, format);
                    text += '\n';
                    ++written;
                }
            }
        }
        if (Status s = sink.put(text); !s)
            return s;
    }
    return Status::Ok();
}

Result<ExportSummary> writeCsv(const ArrayDescriptor& array, Reader& reader,
                               std::string_view sliceText, const Slice& slice, const Filter& filter,
                               const std::string& path, const ExportOptions& options) {
    ExportSummary summary;
    summary.format = ExportFormat::Csv;
    FileSink sink(path);
    if (Status s = sink.open(); !s)
        return s.error();
    if (!filter.empty()) {
        const TilePlan plan(layoutOf(array, slice.dims), options.tileBytes);
        Status s = withRepr(kindInfo(array.kind).repr, [&](auto tag) {
            return writeCsvValues<decltype(tag)::repr>(plan, reader, filter, array.kind,
                                                       options.cancel, sink, summary.count);
        });
        if (!s)
            return s.error();
        summary.shape = {static_cast<std::int64_t>(summary.count), 1};
    } else {
        // The table's own plane, a band of rows at a time.
        TableOptions table;
        table.threads = options.threads;
        table.tileBytes = options.tileBytes;
        table.cancel = options.cancel;
        table.format = csvFormat(array.kind);
        table.usingViewPort = true;
        // The bands are sized here, a row at least.
        table.maxCells = std::numeric_limits<std::uint64_t>::max();
        std::int64_t rows = 1, band = 1;
        for (std::int64_t row = 0; row < rows;) {
            table.viewport = {row, row + band - 1, 0, -1};
            Result<Table> t = tableCells(array, reader, sliceText, "", table);
            if (!t)
                return t.error();
            row += band;
            if (rows == 1 && row == 1) {
                rows = t->rowCount;
                // About a million cells per band, at least one row.
                band = std::max<std::int64_t>(1, (std::int64_t(1) << 20) /
                                                     std::max<std::int64_t>(1, t->colCount));
                summary.shape = {t->rowCount, t->colCount};
            }
            std::string text;
            for (std::int64_t r = 0; r < t->visibleRowCount; ++r) {
                for (std::int64_t c = 0; c < t->visibleColCount; ++c) {
                    if (c)
                        text += ',';
                    text += t->cells[static_cast<std::size_t>(r * t->visibleColCount + c)];
                }
                text += '\n';
            }
            summary.count += static_cast<std::uint64_t>(t->visibleRowCount * t->visibleColCount);
            if (Status s = sink.put(text); !s)
                return s.error();
        }
    }
    if (Status c = sink.close(); !c)
        return c.error();
    return summary;
}

} // namespace

Result<ExportFormat> exportFormatOf(std::string_view path) {
    if (endsWith(path, ".npy"))
        return ExportFormat::Npy;
    if (endsWith(path, ".csv"))
        return ExportFormat::Csv;
    return Error{ErrorCode::BadRequest,
                 "The file name '" + std::string(path) + "' ends neither in .npy nor in .csv."};
}

Result<std::string> npyDtype(ElementKind kind) {
    switch (kind) {
    case ElementKind::Int8:
    case ElementKind::Char:
    case ElementKind::SignedChar:
    case ElementKind::FortranInteger1:
        return std::string("|i1");
    case ElementKind::UInt8:
    case ElementKind::UnsignedChar:
    case ElementKind::FortranCharacter:
        return std::string("|u1");
    case ElementKind::Int16:
    case ElementKind::FortranInteger2:
        return std::string("<i2");
    case ElementKind::Int32:
    case ElementKind::WChar:
    case ElementKind::FortranInteger4:
        return std::string("<i4");
    case ElementKind::Int64:
    case ElementKind::FortranInteger8:
        return std::string("<i8");
    case ElementKind::UInt16:
    case ElementKind::Char16:
        return std::string("<u2");
    case ElementKind::UInt32:
    case ElementKind::Char32:
        return std::string("<u4");
    case ElementKind::UInt64:
        return std::string("<u8");
    case ElementKind::Bool:
    case ElementKind::FortranLogical1:
    case ElementKind::FortranLogical2:
    case ElementKind::FortranLogical4:
    case ElementKind::FortranLogical8:
        return std::string("|b1");
    case ElementKind::Float:
    case ElementKind::FortranReal4:
        return std::string("<f4");
    case ElementKind::Double:
    case ElementKind::FortranReal8:
        return std::string("<f8");
    case ElementKind::LongDouble:
        break;
    }
    return Error{ErrorCode::UnsupportedType,
                 "Cannot write long double elements to .npy: numpy has no type for the x87 "
                 "80-bit format that every reader shares. Export to .csv, or cast the "
                 "expression to double."};
}

Result<ExportSummary> exportElements(const ArrayDescriptor& array, Reader& reader,
                                     std::string_view sliceText, std::string_view filterText,
                                     const std::string& path, const ExportOptions& options) {
    Result<Selection> selection = prepareSelection(array, sliceText, filterText);
    if (!selection)
        return selection.error();
    Result<ExportFormat> format = exportFormatOf(path);
    if (!format)
        return format.error();
    if (*format == ExportFormat::Npy)
        return writeNpy(array, reader, selection->slice, selection->filter, path, options);
    return writeCsv(array, reader, sliceText, selection->slice, selection->filter, path, options);
}

} // namespace arraylens
