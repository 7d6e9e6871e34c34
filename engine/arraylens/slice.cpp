#include "slice.h"

#include "textquote.h"

#include <cctype>
#include <limits>
#include <optional>

namespace arraylens {

namespace {

struct RangeText {
    std::optional<std::int64_t> start, end, stride;
    bool colon = false; // a ':' was written: a range, not a single index
};

class SliceParser {
public:
    explicit SliceParser(std::string_view text) : text_(text) {}

    // Fills ranges; on a syntax error returns it.
    std::optional<Error> parse(Language& form, std::vector<RangeText>& ranges) {
        skipBlanks();
        if (atEnd())
            return std::nullopt;
        char c = text_[pos_];
        if (c == '[') {
            form = Language::C;
            while (!atEnd() && text_[pos_] == '[') {
                ++pos_;
                RangeText r;
                if (auto e = parseRange(r, "]"))
                    return e;
                if (!eat(']'))
                    return expected(r.colon || r.start ? "']'" : "an index or ':'");
                ranges.push_back(r);
                skipBlanks();
            }
            if (!atEnd())
                return expected("'['");
            return std::nullopt;
        }
        if (c == '(') {
            form = Language::Fortran;
            ++pos_;
            for (;;) {
                RangeText r;
                if (auto e = parseRange(r, ",)"))
                    return e;
                ranges.push_back(r);
                if (eat(','))
                    continue;
                if (eat(')'))
                    break;
                return expected("',' or ')'");
            }
            skipBlanks();
            if (!atEnd())
                return expected("the end of the slice");
            return std::nullopt;
        }
        return expected("'[' or '('");
    }

private:
    bool atEnd() const { return pos_ >= text_.size(); }
    void skipBlanks() {
        while (!atEnd() && (text_[pos_] == ' ' || text_[pos_] == '\t'))
            ++pos_;
    }
    bool eat(char c) {
        skipBlanks();
        if (!atEnd() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    // "Cannot read the slice '...' at column N: <what>.", the column at the
    // current position, the slice quoted around it.
    Error readError(const std::string& what) const {
        const std::size_t column = charColumn(text_, pos_);
        return Error{ErrorCode::BadSlice, "Cannot read the slice '" + quoteAround(text_, column) +
                                              "' at column " + std::to_string(column) + ": " +
                                              what + "."};
    }
    Error expected(const std::string& what) const { return readError("expected " + what); }

    // [+-]digits, blanks around; nothing there gives no value.
    std::optional<Error> number(std::optional<std::int64_t>& out) {
        skipBlanks();
        std::size_t begin = pos_;
        bool negative = false;
        if (!atEnd() && (text_[pos_] == '-' || text_[pos_] == '+')) {
            negative = text_[pos_] == '-';
            ++pos_;
            skipBlanks();
        }
        if (atEnd() || !std::isdigit(static_cast<unsigned char>(text_[pos_]))) {
            if (pos_ != begin)
                return expected("a digit");
            return std::nullopt;
        }
        // Accumulate negatively so that the lowest 64-bit value is readable.
        std::int64_t v = 0;
        const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
        while (!atEnd() && std::isdigit(static_cast<unsigned char>(text_[pos_]))) {
            int d = text_[pos_] - '0';
            if (v < (lowest + d) / 10) {
                pos_ = begin;
                skipBlanks();
                return readError("the number is too large");
            }
            v = v * 10 - d;
            ++pos_;
        }
        if (!negative) {
            if (v == lowest) {
                pos_ = begin;
                skipBlanks();
                return readError("the number is too large");
            }
            v = -v;
        }
        out = v;
        skipBlanks();
        return std::nullopt;
    }

    std::optional<Error> parseRange(RangeText& r, const char* closers) {
        if (auto e = number(r.start))
            return e;
        skipBlanks();
        if (eat(':')) {
            r.colon = true;
            if (auto e = number(r.end))
                return e;
            if (eat(':')) {
                if (auto e = number(r.stride))
                    return e;
                if (!r.stride) {
                    skipBlanks();
                    // `a:b:` with nothing after the second colon
                    return expected("a stride");
                }
            }
        } else if (!r.start) {
            skipBlanks();
            return expected("an index or ':'");
        }
        skipBlanks();
        if (!atEnd() && std::string_view(closers).find(text_[pos_]) == std::string_view::npos &&
            !r.colon)
            return expected(std::string_view(closers) == "]" ? "':' or ']'" : "':', ',' or ')'");
        return std::nullopt;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
};

Error boundsError(std::int64_t index, const Dimension& d, std::size_t dim) {
    return Error{ErrorCode::BadSlice, "Slice index " + std::to_string(index) +
                                          " is outside the bounds " + boundsText(d) + " of " +
                                          dimensionName(dim) + "."};
}

} // namespace

std::size_t Slice::rank() const {
    std::size_t r = 0;
    for (const SliceDim& d : dims)
        r += d.fixed ? 0 : 1;
    return r;
}

std::uint64_t Slice::count() const {
    std::uint64_t n = 1;
    for (const SliceDim& d : dims)
        n *= static_cast<std::uint64_t>(d.count);
    return n;
}

std::vector<std::size_t> Slice::keptDims() const {
    std::vector<std::size_t> k;
    for (std::size_t i = 0; i < dims.size(); ++i)
        if (!dims[i].fixed)
            k.push_back(i);
    return k;
}

std::string boundsText(const Dimension& dim) {
    return std::to_string(dim.lower) + ":" + std::to_string(dim.upper);
}

std::string wholeArraySliceText(const ArrayDescriptor& array) {
    std::string s;
    if (array.language == Language::C) {
        for (const Dimension& d : array.dims)
            s += "[" + boundsText(d) + "]";
        return s;
    }
    s = "(";
    for (std::size_t i = 0; i < array.dims.size(); ++i)
        s += (i ? "," : "") + boundsText(array.dims[i]);
    return s + ")";
}

std::string normalFormText(const std::vector<SliceDim>& dims, Language form) {
    auto one = [](const SliceDim& d) {
        return std::to_string(d.start) + ":" + std::to_string(d.end) + ":" +
               std::to_string(d.stride);
    };
    std::string s;
    if (form == Language::C) {
        for (const SliceDim& d : dims)
            s += "[" + one(d) + "]";
        return s;
    }
    s = "(";
    for (std::size_t i = 0; i < dims.size(); ++i)
        s += (i ? "," : "") + one(dims[i]);
    return s + ")";
}

Result<Slice> parseSlice(std::string_view text, const ArrayDescriptor& array) {
    Slice slice;
    slice.form = array.language;
    std::vector<RangeText> ranges;
    SliceParser parser(text);
    if (auto e = parser.parse(slice.form, ranges))
        return *e;
    const std::size_t rank = array.dims.size();
    slice.whole = ranges.empty();
    if (slice.whole)
        ranges.assign(rank, RangeText{std::nullopt, std::nullopt, std::nullopt, true});
    if (ranges.size() != rank)
        return Error{ErrorCode::BadSlice, "Slice has " + std::to_string(ranges.size()) +
                                              (ranges.size() == 1 ? " dimension" : " dimensions") +
                                              " but the array has " + std::to_string(rank) + "."};

    for (std::size_t i = 0; i < rank; ++i) {
        const RangeText& r = ranges[i];
        const Dimension& dim = array.dims[i];
        SliceDim d;
        d.stride = r.stride.value_or(1);
        if (d.stride == 0)
            return Error{ErrorCode::BadSlice,
                         "Slice stride must not be 0 (dimension " + std::to_string(i + 1) + ")."};
        if (!r.colon) {
            d.start = d.end = *r.start;
            d.fixed = true;
        } else {
            d.start = r.start.value_or(d.stride > 0 ? dim.lower : dim.upper);
            d.end = r.end.value_or(d.stride > 0 ? dim.upper : dim.lower);
            d.fixed = r.start && r.end && *r.start == *r.end;
        }
        if (dim.extent() == 0 && !r.start && !r.end) {
            // An empty dimension taken whole selects nothing; that is no error.
            d.count = 0;
            slice.dims.push_back(d);
            continue;
        }
        if (r.start || !r.colon) {
            if (d.start < dim.lower || d.start > dim.upper)
                return boundsError(d.start, dim, i);
        }
        if (r.end) {
            if (d.end < dim.lower || d.end > dim.upper)
                return boundsError(d.end, dim, i);
        }
        if (d.stride > 0 && d.start > d.end)
            return Error{ErrorCode::BadSlice, "Slice selects no elements in dimension " +
                                                  std::to_string(i + 1) + ": with stride " +
                                                  std::to_string(d.stride) +
                                                  " the start must not be above the end."};
        if (d.stride < 0 && d.start < d.end)
            return Error{ErrorCode::BadSlice, "Slice selects no elements in dimension " +
                                                  std::to_string(i + 1) + ": with stride " +
                                                  std::to_string(d.stride) +
                                                  " the start must not be below the end."};
        __int128 span = static_cast<__int128>(d.end) - d.start;
        d.count = static_cast<std::int64_t>(span / d.stride + 1);
        slice.dims.push_back(d);
    }
    return slice;
}

std::uint64_t Layout::count() const {
    std::uint64_t n = 1;
    for (std::int64_t e : extents)
        n *= static_cast<std::uint64_t>(e);
    return n;
}

Layout layoutOf(const ArrayDescriptor& array, const std::vector<SliceDim>& dims) {
    Layout l;
    l.elementSize = array.elementSize;
    std::int64_t offset = 0;
    for (std::size_t i = 0; i < dims.size(); ++i) {
        const SliceDim& d = dims[i];
        const Dimension& a = array.dims[i];
        if (d.count > 0)
            offset += (d.start - a.lower) * a.byteStride;
        if (!d.fixed) {
            l.extents.push_back(d.count);
            l.byteStrides.push_back(d.byteStep(a.byteStride));
        } else if (d.count == 0) {
            l.extents.push_back(0);
            l.byteStrides.push_back(0);
        }
    }
    l.base = array.address + static_cast<std::uint64_t>(offset);
    if (l.extents.empty()) {
        l.extents.push_back(1);
        l.byteStrides.push_back(static_cast<std::int64_t>(array.elementSize));
    }
    return l;
}

} // namespace arraylens
