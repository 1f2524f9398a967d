// parameter_names - the parameters of main.cf that the tool reads or writes

#ifndef MAILVEK_POSTFIX_MAIN_CF_PARAMETER_NAMES_H
#define MAILVEK_POSTFIX_MAIN_CF_PARAMETER_NAMES_H

namespace orvek::mail::postfix::parameter {

inline constexpr char config_directory[] = "config_directory";
inline constexpr char my_destination[] = "mydestination";
inline constexpr char my_host_name[] = "myhostname";
inline constexpr char my_networks[] = "mynetworks";
inline constexpr char message_size_limit[] = "message_size_limit";
inline constexpr char mailbox_size_limit[] = "mailbox_size_limit";
inline constexpr char client_restrictions[] = "smtpd_client_restrictions";
inline constexpr char recipient_restrictions[] = "smtpd_recipient_restrictions";
inline constexpr char sasl_auth_enable[] = "smtpd_sasl_auth_enable";

} // namespace orvek::mail::postfix::parameter

#endif
