#pragma once

namespace Debug {

/// Takes the fields of a tree, one by one, for somebody to read.
class Dumper {
  public:
    virtual void print_field(const char* name, const char* text) = 0;
    /// What comes now belongs to `name`, until `end_group`.
    virtual void begin_group(const char* name) = 0;
    virtual void end_group() = 0;
    virtual ~Dumper() = default;
};

/// Prints a line a field through the debug printer, indented by two blanks a group.
class Print_dumper : public Dumper {
  public:
    void print_field(const char* name, const char* text) override;
    void begin_group(const char* name) override;
    void end_group() override;

  private:
    int depth_ = 0;
};

} // namespace Debug
