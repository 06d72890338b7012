#pragma once

#include <support/builders/Frame_builder.h>
#include <support/builders/Random.h>

#include <cstdio>
#include <string>

/// Random traffic of a receiver, element by element: frames, replies, noise, single NULs, and damaged ones of these.
class Receiver_traffic {
  public:
    explicit Receiver_traffic(Random& random) : random_(random) {}

    std::string element() {
        switch (random_.between(0, 9)) {
        case 0:
            return reply();
        case 1:
            return random_.bytes(random_.between(1, 40));
        case 2:
            return random_.bytes(random_.between(0, 40)) + line_end();
        case 3:
            return damaged(frame());
        case 4:
            return damaged(reply());
        case 5:
            return std::string(random_.between(1, 4), '\0');
        default:
            return frame();
        }
    }

    std::string frame() {
        static const char* const identifiers[] = {"PG", "~~", "||", "PV", "SI", "00"};
        return build_frame(identifiers[random_.between(0, 5)], random_.bytes(random_.between(0, 60)), Checksum::binary,
                           line_end());
    }

    std::string damaged(std::string bytes) {
        const std::size_t offset = random_.between(0, static_cast<unsigned>(bytes.size()) - 1);
        switch (random_.between(0, 2)) {
        case 0:
            bytes[offset] = static_cast<char>(random_.byte());
            break;
        case 1:
            bytes.erase(offset, 1);
            break;
        default:
            bytes.insert(offset, 1, bytes[offset]);
        }
        return bytes;
    }

  private:
    std::string line_end() {
        static const char* const ends[] = {"\n", "\r", "\r\n"};
        return ends[random_.between(0, 2)];
    }

    std::string reply() {
        const std::string text(random_.between(0, 30), 't');
        char header[8];
        const bool counts_cr = random_.one_in(2);
        std::snprintf(header, sizeof header, "%s%03X", random_.one_in(2) ? "RE" : "ER",
                      static_cast<unsigned>(text.size()) + (counts_cr ? 1 : 0));
        return header + text + "\r\n";
    }

    Random& random_;
};
