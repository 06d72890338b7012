#pragma once

#include <glue/export.h>

/// The receiver's phrase for an error, with a comma before it: ",wrong command" for 1.
/// \return null unless `code` is 1 to 41
GLUE_EXPORT const char* errcode2str(int code);

namespace Vesk {

/// The errors that the receiver reports. The names follow its phrases.
enum vesk_ret_t : int {
    err_wrong_command = 1,
    err_1st_parameter_missed,
    err_wrong_1st_parameter,
    err_value_missed,
    err_value_out_of_range,
    err_2nd_parameter_missed,
    err_wrong_2nd_parameter,
    err_wrong_file_name,
    err_file_open_error,
    err_file_system_not_mounted,
    err_file_read_error,
    err_file_already_exists,
    err_data_transfer_open,
    err_cant_create_file,
    err_terminated_by_user,
    err_wrong_receiver_id,
    err_wrong_option_name,
    err_bad_option_date,
    err_bad_option_value,
    err_access_denied,
    err_option_disabled,
    err_operation_in_progress,
    err_no_file_system_device,
    err_dup_loop,
    err_not_supported,
    err_cant_remove_file,
    err_device_is_not_accessible,
    err_broken_file,
    err_wrong_hardware_version,
    err_incompatible_file_version,
    err_file_write_error,
    err_data_transfer_error,
    err_cant_lock,
    err_no_valid_mass_storage_found,
    err_cant_create_work_directory,
    err_file_system_not_supported,
    err_file_not_found,
    err_cant_copy_onto_itself,
    err_device_is_write_protected,
    err_device_busy, ///< also an invalid file length: one code for two phrases
    err_data_transfer_delay,
    err_unassigned ///< on purpose a code without a phrase
};

/// The same as `::errcode2str`; null for `err_unassigned`.
GLUE_EXPORT const char* errcode2str(vesk_ret_t code);

} // namespace Vesk

/// Finds the error code of an "ER" reply.
///
///     if (!response.get_response_status())
///         report(Vesk_error_decoder::extract(response.get_response_string()));
///
/// The first use sorts a table: let one thread do that before others use the decoder. After that, all operations may be
/// called from any thread.
class GLUE_EXPORT Vesk_error_decoder {
  public:
    /// A phrase, without its comma, and its code. Items are ordered by their phrases.
    struct Item {
        const char* text = nullptr; ///< not owned
        int code = -1;

        bool operator<(const Item& other) const;
        bool operator>(const Item& other) const;
    };

    /// Sorts the phrases. An assertion ends the process if a phrase does not begin with a comma.
    static void init();

    /// The code of a phrase. The phrase has no comma before it.
    /// \return -1 for null and for a text that is no phrase
    static int get(const char* phrase);

    /// The code of the phrase in the text of a reply: the text after the last comma, without the line end, up to a "}"
    /// if there is one. Other white space belongs to the phrase.
    ///
    /// On purpose: the two phrases of code 40 have a comma between them, so neither is found here.
    /// \return -1 when the text has no known phrase
    static int extract(const char* text);

  private:
    static constexpr int capacity = 41;

    static Item items_[capacity];
    static int count_;
    static bool initialised_;
};
