// A host in Rust, by the C functions alone:
//
//     rustc host.rs -L $(pkg-config --variable=libdir libdbusgantry)
//     busctl call com.orvane.velmar.HWInventory /com/orvane/velmar/HWInventory \
//         com.orvane.velmar.HWInventory GetDMStatus
use std::os::raw::{c_char, c_int, c_void};
use std::ptr::null;

/// GANTRY_table__com_orvane_velmar_HWInventory: a function that is None replies with zeros.
#[repr(C)]
#[allow(non_snake_case)]
struct Inventory {
    GetDMStatus: Option<extern "C" fn(instance: *mut c_void, status: *mut c_int)>,
    GetPopStatus: Option<extern "C" fn(instance: *mut c_void, status: *mut c_int)>,
}

#[link(name = "dbusgantry")]
extern "C" {
    fn GANTRY_instantiate__com_orvane_velmar_HWInventory(
        context: *const c_void, table: *const Inventory, path: *const c_char, data: *const c_void);
    fn GANTRY_dbus_loop(context: *const c_void);
}

// A panic must not leave it: the caller is written in C.
extern "C" fn status(_instance: *mut c_void, status: *mut c_int) {
    unsafe { *status = 1 };
}

static INVENTORY: Inventory = Inventory { GetDMStatus: Some(status), GetPopStatus: None };

fn main() {
    unsafe {
        GANTRY_instantiate__com_orvane_velmar_HWInventory(null(), &INVENTORY, null(), null());
        GANTRY_dbus_loop(null());
    }
    std::process::exit(1); // the log says why the loop ended
}
