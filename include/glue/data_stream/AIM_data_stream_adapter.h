#pragma once

#include <glue/data_stream/Pushed_data_stream.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/Diner.h>

#include <memory>
#include <mutex>

/// Presents the payload of the AIM frames (see `AIM_message`) that another stream carries, the raw stream, as a plain
/// stream of bytes: what is written goes out as one frame; of the frames that come in, the payload can be read.
///
///     auto port = std::make_unique<TCP_client_data_stream>(...);
///     AIM_data_stream_adapter adapter(modules, std::move(port), '1');
///     adapter.reg_rx_waiter(&my_loop_waiter, false);
///     ...                                            // in the loop, for an event that came from the adapter:
///     while (adapter.bytes_avail() != 0)
///         take_a_message_from(adapter);
///
/// **The way of a byte.** The raw stream announces bytes to the adapter's own event loop. As long as the adapter's
/// ring is empty, frames are taken from the raw stream until one has brought a payload; then the adapter's rx waiter
/// is told. The next frame is taken when a reader has emptied the ring or asks for more; until then it stays in the raw
/// stream, which holds its sender back as it may. Frames of every channel are read.
///
/// **What is lost.** Rubbish between frames; a frame whose checksum is wrong, whose length is below 3 or whose
/// identifier is not ">>" ("Unexpected non AIM data read"); a frame with more than `longest_read` bytes of payload;
/// what a payload brings beyond the room there is in the ring. Receiver replies and single acknowledgement bytes on the
/// raw stream are skipped too; each ends the taking of frames until the raw stream announces more bytes or a reader
/// asks.
///
/// **Events.** As every `Event_sender_data_stream`, from module 0 until `init` is called on the adapter. Each drop that
/// leaves bytes announces them anew. The tx waiter is never told: the raw stream's tx events only make the adapter
/// look for bytes.
///
/// **Ownership.** The raw stream becomes the adapter's and is destroyed with it: first the loop ends, then the raw
/// stream goes, then what its events were sent to. A raw stream that waits for bytes when asked for more keeps the
/// loop, and the destructor, waiting as long.
///
/// **Threads.** Frames are taken, and the rx waiter is told, in the loop's thread ("vro.ADSA" and a number) and in
/// those of the readers. The adapter's lock guards the ring and the parser; no event is sent under it. Writers take no
/// lock of the adapter. The frame and its line feed are two writes on the raw stream: threads that write at the same
/// time agree among themselves who is first, or frames get lost. The loop runs from the end of the constructor to the
/// beginning of the destructor: derive nothing from this class.
///
/// With debug category 105 what is written, read and discarded is traced.
class GLUE_EXPORT AIM_data_stream_adapter : public Pushed_data_stream, public Diner {
  public:
    /// Bytes that one frame is built in and taken into; a longer one than is built there is built on the heap.
    static constexpr unsigned build_size = 4095;
    static constexpr unsigned packet_size = 4096;
    /// Bytes of payload that a reader of frames (this class included) can take in one frame.
    static constexpr unsigned longest_read = 4087;

    /// Starts the loop, drops what `raw_stream` has buffered, becomes its rx and tx waiter and gives it a module id.
    /// \param written_channel  of the frames that are written
    AIM_data_stream_adapter(module_man& modules, std::unique_ptr<Event_sender_data_stream> raw_stream,
                            char written_channel);

    // Virtual operations: their order is part of the binary interface.

    /// Ends the loop, then destroys the raw stream. No other thread uses the adapter any more.
    ~AIM_data_stream_adapter() override;

    using Data_stream::_get_data;
    using Data_stream::get_data;
    using Diner::handle_timeout;
    using Event_sender_data_stream::init;

    /// Takes frames while the ring is empty. Never waits, unless the raw stream does.
    ///
    /// The caller holds the adapter's lock, as all reading operations of `Data_stream` do. To read without it is a
    /// mistake that loses bytes: it is reported with a backtrace and aborts the process. Debug category 43 leaves it at
    /// the report, 44 leaves out both.
    /// \return whether the ring holds `n` bytes now, old and new ones together
    int get_data(int n) override;

    /// Takes `n` bytes out of the ring as every stream does. When it is empty then, takes frames; when it is not,
    /// announces what is there.
    void drop(unsigned int n) override;

    /// Drops everything that has come: the ring and all that the raw stream has buffered, up to a frame that is not
    /// there whole yet, a reply or an acknowledgement.
    void drop_all() override;

    /// The raw stream has bytes, or room: takes frames when the ring is empty, and announces what is in it.
    void handle_event(waiter_event& event) override;

    /// Nothing: there are no timeouts.
    void handle_timeout(Timeout& timeout) override;

    /// Writes one frame and a line feed to the raw stream. A payload is never split.
    ///
    /// On purpose: with more than `longest_read` bytes the frame is more than its readers can take, and they will
    /// discard it; with more than 4089 its length digits are not written, and go out as three NULs.
    /// \return `n`; 0 when the raw stream did not take all of it, of which it may have taken a part
    int _write(const unsigned char* buf, unsigned int n) override;

    /// Whether the raw stream has ended and no frame is left: nothing is buffered, and nothing will be. Takes the lock.
    bool has_ended() override;

  private:
    using Lock = std::unique_lock<Mutex>;

    bool _get_data();
    bool write_frame(unsigned char* buffer, unsigned int size, const unsigned char* payload, unsigned int n);
    void refill();
    void announce(Lock& held);
    void check_lock() const;

    std::unique_ptr<Event_sender_data_stream> raw_;
    Vesk_parser parser_;
    char channel_;
    Mutex mutex_;
};
