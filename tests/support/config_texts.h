// Configuration texts in the manner of what other programs use, each with one value of it.
#pragma once

#include <string>

namespace support {

struct ConfigText {
    const char *name, *group, *key;
    std::string before; // the text in front of the value
    const char *value, *newValue;
    std::string after;
};

inline const ConfigText configTexts[] = {
    {"php", "PHP", "memory_limit",
     "; About this file\n[PHP]\n\n;;;;;;;;\n; Limits ;\n;;;;;;;;\nengine = On\n"
     "precision    =  14\n; memory_limit = 64M\nmemory_limit = ",
     "128M", "2G", "   \nerror_reporting=E_ALL & ~E_NOTICE\n\n\n[Date]\n;date.timezone =\n"},
    {"mysql", "mysqld", "bind-address",
     "#\n# The database server\n#\n[client]\nport\t\t= 3306\n\n[mysqld]\nskip-name-resolve\n"
     "#bind-address = ::\nbind-address\t= ",
     "127.0.0.1", "10.0.0.1",
     "  # loopback\nmax_connections=100\n\n!includedir /etc/my.d/\n[mysqld]\nbind-address=::\n"},
    {"samba", "homes", "browseable",
     "# A share for everybody\n[Global]\n   workgroup = HOUSE\n;  wins support = no\n\n"
     "\tserver string = %h server (\"home\")\n[homes]\n   comment = Home Directories\n   "
     "browseable = ",
     "no", "yes", "\n\n  # create mask = 0700\n[homes ]\n   read only = yes\n"},
    {"desktop", "Desktop Entry", "Exec",
     "# made by hand\n[Desktop Entry]\nName=Editor\nName[de]=B\303\274cher\n\nExec = ", "edit %F",
     "edit --new %F",
     "\nCategories=Utility;TextEditor;\n\n\n[Desktop Action New]\n# later\nExec=edit\n"},
    {"CR LF, byte-order mark", "Mail", "Server",
     "\xEF\xBB\xBF; settings\r\n[Mail]\r\nPort=25\r\nServer=", "mail.example", "post.example",
     "\r\n\r\n[Window]\r\nSize=80,24\r\n[mail]\r\nServer=none\r\n"}};

} // namespace support
