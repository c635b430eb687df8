// SPDX-License-Identifier: Apache-2.0
#include "exporter/MetricsPage.h"

#include <zlib.h>

#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr int gzipWindow = MAX_WBITS + 16; // zlib's way to say that the format is gzip's
constexpr int usualMemory = 8;

SharedText compress(const std::string& text)
{
    z_stream stream = {};
    if (text.size() > std::numeric_limits<uInt>::max() / 2
        || deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, gzipWindow, usualMemory, Z_DEFAULT_STRATEGY)
            != Z_OK) {
        return nullptr;
    }
    std::string compressed(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data())); // which it only reads
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_out = static_cast<uInt>(compressed.size());
    const int outcome = deflate(&stream, Z_FINISH);
    compressed.resize(stream.total_out);
    compressed.shrink_to_fit();
    deflateEnd(&stream);
    return outcome == Z_STREAM_END ? std::make_shared<const std::string>(std::move(compressed)) : nullptr;
}

} // namespace

MetricsPage::MetricsPage(MetricsSnapshot snapshot, const MetricsOptions& options)
    : snapshot_(std::move(snapshot)), options_(options)
{
}

SharedText MetricsPage::text(MetricsFormat format)
{
    SharedText& text = texts_[format];
    if (!text) {
        text = std::make_shared<const std::string>(metricsText(snapshot_, options_, format));
    }
    return text;
}

SharedText MetricsPage::gzip(MetricsFormat format)
{
    SharedText& compressed = compressed_[format];
    if (!compressed) {
        compressed = compress(*text(format));
    }
    return compressed;
}

} // namespace meridal
