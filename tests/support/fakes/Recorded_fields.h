#pragma once

#include <platform/Dumper.h>

#include <string>

/// A dumper that records its calls: "name=text;" for a field, "name{" and "}" for a group.
class Recorded_fields : public Debug::Dumper {
  public:
    void print_field(const char* name, const char* text) override { text_ += std::string(name) + "=" + text + ";"; }
    void begin_group(const char* name) override { text_ += std::string(name) + "{"; }
    void end_group() override { text_ += "}"; }

    const std::string& text() const { return text_; }

  private:
    std::string text_;
};
