// SPDX-License-Identifier: ISC
// What the package "quillworks" takes from here. People see quillworks/__init__.py, which says what
// things mean.
#include <nlohmann/json.hpp>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bound_effect.h"
#include "effect_info.h"
#include "error.h"
#include "host.h"
#include "player.h"
#include "sounds.h"

namespace quillworks::python {
namespace {

std::vector<std::string> effectNames()
{
    std::vector<std::string> names;
    for (const auto* c : session().classes()) names.emplace_back(c->name->text());
    return names;
}

/// Of a new instance: that of the caller may be playing.
std::string infoOf(const std::string& name)
{
    const auto effect = session().create(name);
    quillhost::prepareAsUsual(effect);
    return quillhost::effectInfo(session(), effect)
        .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void defineEffect(py::module_& m)
{
    py::class_<BoundEffect, std::shared_ptr<BoundEffect>>(m, "Effect")
        .def(py::init(&BoundEffect::fromSpec), py::arg("spec"))
        .def_static("from_state", &BoundEffect::fromState, py::arg("name"), py::arg("state"))
        .def_property_readonly("title", [](BoundEffect& e) { return e.effect().name(); })
        .def_property_readonly("name", &BoundEffect::name)
        .def("keys", &BoundEffect::keys)
        .def("get", &BoundEffect::get, py::arg("key"))
        .def("get_text", &BoundEffect::getText, py::arg("key"))
        .def("set", &BoundEffect::set, py::arg("key"), py::arg("value"))
        .def("is_measured", &BoundEffect::isMeasured, py::arg("key"))
        .def("meters", &BoundEffect::meters)
        .def("presets", &BoundEffect::presets)
        .def("preset_name", &BoundEffect::presetName)
        .def("load_factory_preset", &BoundEffect::loadFactoryPreset, py::arg("index"))
        .def("load_preset", &BoundEffect::loadPreset, py::arg("path"))
        .def("save_preset", &BoundEffect::savePreset, py::arg("path"), py::arg("title"))
        .def("state", &BoundEffect::state)
        .def("load_state", &BoundEffect::loadState, py::arg("state"));
    m.def("chain", &BoundEffect::fromChainSpec, py::arg("spec"));
}

void definePlayer(py::module_& m)
{
    const auto make = [](std::vector<std::shared_ptr<BoundEffect>> effects, double rate,
                         int channels, bool isDouble, const std::string& layout,
                         const std::string& outputLayout, int sideChainChannels, int block,
                         double tempo, double position, bool playing, bool allowMissing) {
        return std::make_unique<Player>(std::move(effects),
                                        PlayerSetup{rate, channels, isDouble, layout, outputLayout,
                                                    sideChainChannels, block, tempo, position,
                                                    playing, allowMissing});
    };
    py::class_<Player>(m, "Player")
        .def(py::init(make), py::arg("effects"), py::kw_only(), py::arg("rate"),
             py::arg("channels"), py::arg("is_double"), py::arg("layout"), py::arg("output_layout"),
             py::arg("side_chain_channels"), py::arg("block"), py::arg("tempo"),
             py::arg("position"), py::arg("playing"), py::arg("allow_missing"))
        .def_property_readonly("latency", &Player::latency)
        .def_property_readonly("tail", &Player::tail)
        .def_property_readonly("channels", &Player::outputs)
        .def("render", &Player::render, py::arg("array"), py::arg("side_chain"), py::arg("tail"),
             py::arg("keep_latency"))
        .def("play", &Player::play, py::arg("block"), py::arg("side_chain"))
        .def("restart", &Player::restart)
        .def("close", &Player::close);
}

}  // namespace

PYBIND11_MODULE(_native, m)
{
    static const py::exception<quillhost::WorkError> error(m, "Error", PyExc_RuntimeError);
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(thrown);
        } catch (const quillhost::UsageError& e) {
            PyErr_SetString(PyExc_ValueError, e.what());
        } catch (const quillhost::WorkError& e) {
            PyErr_SetString(error.ptr(), e.what());
        }
    });
    m.def(
        "channels_of",
        [](const py::array& array) { return SoundArray(array, "the sound").channels(); },
        py::arg("array"));
    m.def("effects", &effectNames);
    m.def("info", &infoOf, py::arg("name"));
    m.def("read", &readSound, py::arg("path"), py::arg("rate"), py::arg("is_double"));
    m.def("write", &writeSound, py::arg("path"), py::arg("array"), py::arg("rate"),
          py::arg("format"), py::arg("dither"), py::arg("layout"));
    m.def("measure_file", &measureFile, py::arg("path"));
    m.def("measure_array", &measureArray, py::arg("array"), py::arg("rate"), py::arg("layout"));
    defineEffect(m);
    definePlayer(m);
}

}  // namespace quillworks::python
