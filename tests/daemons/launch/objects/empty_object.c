int launch_empty_object_value = 1;
