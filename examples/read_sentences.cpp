// Prints the positions of NMEA sentences from standard input: receiver_simulator --nmea | read_sentences
#include <glue/data_stream/Posix_data_stream.h>
#include <glue/vesk/NMEA_messages.h>

#include <cstdio>
#include <string>

int main() {
    Posix_data_stream stream(0, -1);
    while (stream.bytes_avail(stream.bytes_avail() + 1)) { // fetches when nothing more is buffered
        for (unsigned length = stream.string_avail(); length > 0; length = stream.string_avail()) {
            if (length == Data_stream::full_ring) {
                stream.drop_all(); // no sentence is as long as the ring
                continue;
            }
            std::string line(length, '\0');
            static_cast<Data_stream&>(stream).get_data(reinterpret_cast<unsigned char*>(line.data()), length, 0);
            stream.drop(length);
            const NMEA_messages::Msg_NMEA_GGA sentence(line.data(), length);
            if (sentence.is_GGA() && sentence.check_checksum())
                std::printf("%.10f %.10f %.3f\n", sentence.get_latitude(), sentence.get_longitude(),
                            sentence.get_altitude());
        }
    }
}
