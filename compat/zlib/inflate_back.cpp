// Raw streams by callbacks, into a window that the caller owns.
//
// The decoder keeps a history of its own, so that the window is nothing here but the place where
// output goes; it is handed over whenever it is full, and at the end.
#include "codec/inflate_decoder.h"
#include "compat/zlib/inflate_messages.h"
#include "compat/zlib/streams.h"

using namespace vekdc;
using namespace vekdc::codec;

namespace {

struct BackInflater : compat::StreamState {
    static constexpr Kind kKind = Kind::Back;

    BackInflater(z_streamp stream, unsigned char* place, unsigned bits)
        : StreamState(stream, kKind), window(place), windowBits(bits), decoder(allocator()) {
        decoder.neverAhead(size_t{1} << windowBits);
    }

    unsigned char* window;
    unsigned windowBits;
    InflateDecoder decoder;
};

BackInflater* stateOf(z_streamp stream) {
    return compat::stateOf<BackInflater>(stream);
}

}  // namespace

extern "C" {

int inflateBackInit_(z_streamp strm, int windowBits, unsigned char* window, const char* version,
                     int stream_size) {
    if (compat::wrongVersion(version, stream_size)) return Z_VERSION_ERROR;
    if (strm == nullptr || window == nullptr || windowBits < 8 || windowBits > MAX_WBITS)
        return Z_STREAM_ERROR;
    strm->msg = nullptr;
    compat::defaultMemory(strm);
    const auto* const state =
        compat::newState<BackInflater>(strm, window, static_cast<unsigned>(windowBits));
    return state == nullptr ? Z_MEM_ERROR : Z_OK;
}

int inflateBack(z_streamp strm, in_func in, void* in_desc, out_func out, void* out_desc) {
    BackInflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    strm->msg = nullptr;
    InflateDecoder& decoder = state->decoder;
    decoder.reset();
    Input input{strm->next_in, strm->next_in != nullptr ? strm->avail_in : 0};
    const size_t size = size_t{1} << state->windowBits;
    Output room{state->window, size};
    int status = Z_OK;
    while (status == Z_OK) {
        switch (decoder.run(input, room)) {
            case Status::Ended:
                status = Z_STREAM_END;
                break;
            case Status::Broken:
                strm->msg = const_cast<char*>(compat::inflateMessage(decoder.faultKind()));
                status = Z_DATA_ERROR;
                break;
            case Status::NoMemory:
                status = Z_MEM_ERROR;
                break;
            default:
                if (room.left == 0) {
                    room = {state->window, size};
                    if (out(out_desc, state->window, static_cast<unsigned>(size)) != 0)
                        status = Z_BUF_ERROR;
                } else {
                    input.left = in(in_desc, const_cast<unsigned char**>(&input.next));
                    if (input.left == 0) {
                        input.next = nullptr;
                        status = Z_BUF_ERROR;
                    }
                }
        }
    }
    // What the window holds goes out, unless that is what failed.
    const size_t held = size - room.left;
    if (held != 0 && status != Z_MEM_ERROR &&
        out(out_desc, state->window, static_cast<unsigned>(held)) != 0 && status == Z_STREAM_END)
        status = Z_BUF_ERROR;
    strm->next_in = const_cast<Bytef*>(input.next);
    strm->avail_in = static_cast<uInt>(input.left);
    return status;
}

int inflateBackEnd(z_streamp strm) {
    BackInflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    compat::deleteState(strm, state);
    return Z_OK;
}
}
