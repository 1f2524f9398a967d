// idn_error - the texts of Libidn's results
//
// Never null: a result without a text gives "Unknown error". The string is static.

#ifndef MAILVEK_LIB_NAMES_IDN_ERROR_H
#define MAILVEK_LIB_NAMES_IDN_ERROR_H

char const* idn_strerror(int errcode);

#endif
