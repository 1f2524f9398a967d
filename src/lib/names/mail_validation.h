// mail_validation - checks on parts of mail addresses
//
// mail_validate returns 1 when str is valid as the type says, else 0. An unknown type gives 0 and
// is reported through orvek_log as information.

#ifndef MAILVEK_LIB_NAMES_MAIL_VALIDATION_H
#define MAILVEK_LIB_NAMES_MAIL_VALIDATION_H

enum mail_validation_t : int
{
    VALIDATE_EMAIL_LOCAL_PART = 0, // valid unless it holds ".."
};

int mail_validate(char const* str, mail_validation_t type);

#endif
