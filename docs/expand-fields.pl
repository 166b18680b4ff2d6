#!/usr/bin/perl
# Shows Doxygen the three accessors behind each TAVLO_FIELD of a header, with the text that stands beside it.
use strict;
use warnings;
while (<>) {
    if (/^\s*TAVLO_FIELD\((.+), (\w+), (\w+)\);\s*(?:\/\/\/<\s*(.*))?$/) {
        my ($type, $name, $upper, $text) = ($1, $2, $3, $4 ? ": $4" : "");
        print "/// Reads `$name`$text\nvirtual $type $name() const;\n";
        print "/// Writes `$name`$text\nvirtual void set$upper($type value);\n";
        print "/// Changes `$name` in place, through the other two$text\n";
        print "virtual void modify$upper(const std::function<void($type&)>& change);\n";
    } else {
        print;
    }
}
