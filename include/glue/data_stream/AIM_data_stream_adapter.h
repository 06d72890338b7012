#pragma once

#include <glue/data_stream/Pushed_data_stream.h>
#include <glue/vesk/Vesk_parser.h>

#include <platform/Diner.h>

#include <memory>
#include <mutex>

/// Presents the payload of the AIM frames (see `AIM_message`) of another stream, the raw stream, as a plain stream of
/// bytes: each write sends one frame; a reader gets the payload of the received frames.
///
///     auto port = std::make_unique<TCP_client_data_stream>(...);
///     AIM_data_stream_adapter adapter(modules, std::move(port), '1');
///     adapter.reg_rx_waiter(&my_loop_waiter, false);
///     ...                                            // in the loop, for an event from the adapter:
///     while (adapter.bytes_avail() != 0)
///         take_a_message_from(adapter);
///
/// **From the raw stream to the reader.** The raw stream notifies the adapter's own event loop. While the adapter's
/// ring is empty, the adapter takes frames from the raw stream until one has a payload; then it notifies its rx waiter.
/// It takes the next frame when a reader has emptied the ring or fetches more. Until then the frame stays in the raw
/// stream, whose back-pressure reaches the sender. Frames of every channel are read.
///
/// **What is lost.** Noise between frames; a frame whose checksum is wrong, whose length is below 3 or whose
/// identifier is not ">>" ("Unexpected non AIM data read"); a frame with more than `longest_read` bytes of payload;
/// payload that exceeds the free space of the ring. Replies and single acknowledgement bytes of a receiver are skipped,
/// too; after each of them the adapter takes no frame until the raw stream notifies it again or a reader fetches.
///
/// **Events.** As of every `Event_sender_data_stream`, from module 0 until `init` is called on the adapter. Each drop
/// that leaves bytes notifies the rx waiter again. The adapter never notifies the tx waiter: after a tx event of the
/// raw stream it only takes frames.
///
/// **Ownership.** The adapter owns the raw stream. Its destructor first ends the loop, then destroys the raw stream,
/// then the waiter of that stream's events. The loop and the destructor wait as long as a fetch from the raw stream.
///
/// **Threads.** The loop's thread ("vro.ADSA" and a number) and the readers' threads take frames and notify the rx
/// waiter. The adapter's lock guards the ring and the parser; no event is sent under it. Writers acquire no lock of the
/// adapter. A frame and its line feed are two writes on the raw stream: threads that write must do so one at a time, or
/// frames are lost. The loop runs from the end of the constructor to the beginning of the destructor: do not derive
/// from this class.
///
/// Debug category 105 traces the bytes that are written, read and discarded.
class GLUE_EXPORT AIM_data_stream_adapter : public Pushed_data_stream, public Diner {
  public:
    /// Sizes of the buffers in which frames are built and received. A frame above `build_size` is built on the heap.
    static constexpr unsigned build_size = 4095;
    static constexpr unsigned packet_size = 4096;
    /// The longest payload in a frame that readers of frames, this class included, accept.
    static constexpr unsigned longest_read = 4087;

    /// Starts the loop, drops the buffered bytes of `raw_stream`, becomes its rx and tx waiter and calls its `init`.
    /// \param written_channel  the channel of the frames that are written
    AIM_data_stream_adapter(module_man& modules, std::unique_ptr<Event_sender_data_stream> raw_stream,
                            char written_channel);

    // Virtual operations: their order is part of the binary interface.

    /// Ends the loop, then destroys the raw stream. No other thread may use the adapter at that time.
    ~AIM_data_stream_adapter() override;

    using Data_stream::_get_data;
    using Data_stream::get_data;
    using Diner::handle_timeout;
    using Event_sender_data_stream::init;

    /// Takes frames while the ring is empty. Waits only if the raw stream does.
    ///
    /// The caller holds the adapter's lock, as all reading operations of `Data_stream` do. Reading without it is an
    /// error that loses bytes: on purpose a backtrace is printed and the process aborts. With debug category 43 only
    /// the backtrace is printed, with 44 nothing happens.
    /// \return whether the ring now holds `n` bytes, old and new ones together
    int get_data(int n) override;

    /// Consumes `n` bytes of the ring as every stream does. Then takes frames if the ring is empty, and notifies the rx
    /// waiter if it holds bytes.
    void drop(unsigned int n) override;

    /// Drops everything that was received: the bytes in the ring and those that the raw stream has buffered, up to a
    /// partial frame, a reply or an acknowledgement.
    void drop_all() override;

    /// Handles an event of the raw stream: takes frames if the ring is empty, then notifies the rx waiter of bytes.
    void handle_event(waiter_event& event) override;

    /// Does nothing: the adapter sets no timeouts.
    void handle_timeout(Timeout& timeout) override;

    /// Writes one frame and a line feed to the raw stream. A payload is never split.
    ///
    /// On purpose: a frame with more than `longest_read` bytes of payload is sent, though its readers discard it; with
    /// more than 4089 its length digits are not written and are sent as three NULs.
    /// \return `n`; 0 when the raw stream did not accept the whole frame, of which it may have accepted a part
    int _write(const unsigned char* buf, unsigned int n) override;

    /// Whether the raw stream has ended and no frame is left: nothing is buffered, and nothing will be. Takes the lock.
    bool has_ended() override;

  private:
    using Lock = std::unique_lock<Mutex>;

    bool _get_data();
    bool write_frame(unsigned char* buffer, unsigned int size, const unsigned char* payload, unsigned int n);
    void refill();
    void notify_reader(Lock& held);
    void check_lock() const;

    std::unique_ptr<Event_sender_data_stream> raw_;
    Vesk_parser parser_;
    char channel_;
    Mutex mutex_;
};
