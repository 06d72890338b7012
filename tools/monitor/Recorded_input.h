#pragma once

#include "Link_input.h"
#include "Traffic_recorder.h"
#include "common/Interrupt.h"

#include <memory>

/// A link whose traffic is recorded as it arrives. SIGUSR1 switches the record on and off, if `interrupt` catches it.
class Recorded_input : public Link_input {
  public:
    /// Owns `link`; the others outlive it.
    Recorded_input(std::unique_ptr<Link_input> link, Traffic_recorder& recorder, Interrupt& interrupt);

    Arrival wait(std::optional<Atime> deadline, int wake_up_descriptor) override;
    bool ends_at_wake_up() override;
    Data_stream& buffered_bytes() override { return link_->buffered_bytes(); }
    bool can_wait() const override { return link_->can_wait(); }

  private:
    void record(unsigned count);

    std::unique_ptr<Link_input> link_;
    Traffic_recorder& recorder_;
    Interrupt& interrupt_;
};
