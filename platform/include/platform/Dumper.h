#pragma once

namespace Debug {

/// Receives the fields of a tree, one by one, to show them to a reader.
class Dumper {
  public:
    virtual void print_field(const char* name, const char* text) = 0;
    /// The fields until `end_group` belong to `name`.
    virtual void begin_group(const char* name) = 0;
    virtual void end_group() = 0;
    virtual ~Dumper() = default;
};

/// Prints one line per field through the debug printer, indented by two blanks per group.
class Print_dumper : public Dumper {
  public:
    void print_field(const char* name, const char* text) override;
    void begin_group(const char* name) override;
    void end_group() override;

  private:
    int depth_ = 0;
};

} // namespace Debug
