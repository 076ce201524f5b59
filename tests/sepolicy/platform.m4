dnl As much of a platform's policy as the example rests on: classes, one domain, and macros of Android's policy.
class dir
class file
sid kernel
common file { ioctl read write create getattr setattr lock append map unlink link rename open }
class dir inherits file { add_name remove_name reparent search rmdir }
class file inherits file
attribute domain;
attribute file_type;
attribute data_file_type;
attribute property_type;
attribute vendor_property_type;
type kernel, domain;
type mediacodec, domain;
define(`r_file_perms', `{ getattr open read ioctl lock map }')
define(`create_file_perms', `{ create rename setattr unlink append write getattr open read ioctl lock map }')
define(`create_dir_perms', `{ create reparent rmdir setattr add_name remove_name write rename open getattr read search ioctl lock }')
define(`vendor_internal_prop', `type $1, property_type, vendor_property_type;')
define(`get_prop', `allow $1 $2:file { getattr open read map };')
include(POLICY)
role object;
role object types { domain file_type property_type };
user system roles { object };
sid kernel system:object:kernel
