// A schema without mistakes, and mistakes for it.
#pragma once

#include <stdexcept>
#include <string>

// Users and rights in the system database, table 10 Pump(ID, Name, Level) in database "plant".
inline const std::string kPlantSchema =
    "#Database_Start\n"
    "#Name=system Describe=S ID=1 Type=0 TableCount=2\n"
    "#Name=plant Describe=P ID=2 Type=0 TableCount=1\n"
    "#Database_Finish\n"
    "#Table_Start\n"
    "#DBID=1 NAME=users CNAME=U ID=104 INDEX=0 MAX=4 FIELDNUM=4\n"
    "#DBID=1 NAME=rights CNAME=R ID=106 INDEX=1 MAX=4 FIELDNUM=2\n"
    "#DBID=2 NAME=Pump CNAME=PP ID=10 INDEX=0 MAX=3 FIELDNUM=3\n"
    "#Table_Finish\n"
    "#Field_Start\n"
    "#DBID=1 TABLEID=104 NAME=ID CNAME=K ID=1 INDEX=0 TYPE=UINT SIZE=4\n"
    "#DBID=1 TABLEID=104 NAME=name CNAME=N ID=2 INDEX=1 TYPE=STRING SIZE=16\n"
    "#DBID=1 TABLEID=104 NAME=password CNAME=P ID=3 INDEX=2 TYPE=PASSWD SIZE=44\n"
    "#DBID=1 TABLEID=104 NAME=rightsID CNAME=R ID=4 INDEX=3 TYPE=STRING SIZE=28\n"
    "#DBID=1 TABLEID=106 NAME=ID CNAME=K ID=1 INDEX=0 TYPE=UINT SIZE=4\n"
    "#DBID=1 TABLEID=106 NAME=words CNAME=W ID=2 INDEX=1 TYPE=STRING SIZE=32\n"
    "#DBID=2 TABLEID=10 NAME=ID CNAME=K ID=1 INDEX=0 TYPE=UINT SIZE=4\n"
    "#DBID=2 TABLEID=10 NAME=Name CNAME=N ID=2 INDEX=1 TYPE=STRING SIZE=8\n"
    "#DBID=2 TABLEID=10 NAME=Level CNAME=L ID=3 INDEX=2 TYPE=DOUBLE SIZE=8\n"
    "#Field_Finish\n"
    "the end\n";

// The text with `to` in the place of the first `from`, which must be there.
inline std::string changed(std::string text, const std::string &from, const std::string &to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error("nothing to change: " + from);
  return text.replace(at, from.size(), to);
}
