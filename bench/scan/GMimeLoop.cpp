// What GMime alone takes for the messages of a directory: it parses each, decodes all of its parts and reads its
// From, on one thread, and prints how much that was. A whole process to hold "quillmark scan --json" against.
//
//     gmime-loop DIRECTORY

#include <fcntl.h>
#include <gmime/gmime.h>

#include <cstdio>
#include <filesystem>

namespace {

struct Sums {
    unsigned long messages = 0;
    unsigned long parts = 0;
    unsigned long addresses = 0;
    gint64 bytes = 0;
};

void countPart(GMimeObject* /*parent*/, GMimeObject* object, gpointer user) {
    auto& sums = *static_cast<Sums*>(user);
    if (GMIME_IS_MESSAGE_PART(object)) {
        GMimeMessage* const inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
        if (inner != nullptr) g_mime_message_foreach(inner, countPart, user);
        return;
    }
    if (!GMIME_IS_PART(object)) return;
    ++sums.parts;
    GMimeDataWrapper* const content = g_mime_part_get_content(GMIME_PART(object));
    if (content == nullptr) return;
    GMimeStream* const decoded = g_mime_stream_mem_new();
    g_mime_data_wrapper_write_to_stream(content, decoded);
    sums.bytes += g_mime_stream_length(decoded);
    g_object_unref(decoded);
}

void read(char const* path, Sums& sums) {
    int const file = ::open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return;
    GMimeStream* const stream = g_mime_stream_fs_new(file);
    GMimeParser* const parser = g_mime_parser_new_with_stream(stream);
    g_object_unref(stream);
    GMimeMessage* const message = g_mime_parser_construct_message(parser, nullptr);
    g_object_unref(parser);
    if (message == nullptr) return;
    ++sums.messages;
    InternetAddressList* const from = g_mime_message_get_from(message);
    if (from != nullptr) sums.addresses += static_cast<unsigned long>(internet_address_list_length(from));
    g_mime_message_foreach(message, countPart, &sums);
    g_object_unref(message);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    g_mime_init();
    Sums sums;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(argv[1]))
        if (entry.is_regular_file()) read(entry.path().c_str(), sums);
    std::printf("%lu messages, %lu parts, %lld bytes decoded, %lu addresses in From\n", sums.messages,
                sums.parts, static_cast<long long>(sums.bytes), sums.addresses);
}
