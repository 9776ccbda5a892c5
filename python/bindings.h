// Registration of the Network methods, one function per method family, each
// in its own source file.
#pragma once

#include <pybind11/pybind11.h>

#include "pyNetwork.h"

namespace py = pybind11;
using PyNetworkClass = py::class_<PyNetwork>;

void BindFilesAndIdentity(PyNetworkClass& cls);
void BindNodesAndArcs(PyNetworkClass& cls);
void BindOutcomes(PyNetworkClass& cls);
void BindDefinitions(PyNetworkClass& cls);
void BindEquations(PyNetworkClass& cls);
void BindEvidence(PyNetworkClass& cls);
void BindBeliefs(PyNetworkClass& cls);
void BindSubmodels(PyNetworkClass& cls);
void BindPresentation(PyNetworkClass& cls);
void BindUserProperties(PyNetworkClass& cls);
void BindDiagnostics(PyNetworkClass& cls);
void BindCases(PyNetworkClass& cls);
void BindCanonical(PyNetworkClass& cls);
void BindInference(PyNetworkClass& cls);
void BindFileIO(PyNetworkClass& cls);
void BindAnalysis(PyNetworkClass& cls);
void BindNumpy(PyNetworkClass& cls);
// len, in, iteration, repr, pickling (of DataSet too) and sampling.
void BindPythonic(PyNetworkClass& cls, py::module_& learning);
void BindDrawing(PyNetworkClass& cls);
void BindDistributed(PyNetworkClass& cls);
void BindDynamic(PyNetworkClass& cls);

// The record returned by unrolling.
void RegisterUnrollResults(py::module_& m);

// The analysis classes and records.
void RegisterAnnealedMapResults(py::module_& m);
void RegisterMpeResults(py::module_& m);
void RegisterValueOfInfo(py::module_& m);
void RegisterSensitivityResults(py::module_& m);
void RegisterNodeSensitivity(py::module_& m);

// The diagnosis session and its records.
void RegisterDiagResults(py::module_& m);
void RegisterFaultInfo(py::module_& m);
void RegisterObservationInfo(py::module_& m);
void RegisterDiagNetwork(py::module_& m);

// The learning submodule's classes.
void RegisterDataSet(py::module_& learning);
void RegisterDataMatch(py::module_& learning);
void RegisterEM(py::module_& learning);
void RegisterValidator(py::module_& learning);
// Structure learning (bindStructure.cpp).
void RegisterBayesianSearch(py::module_& learning);
void RegisterBkKnowledge(py::module_& learning);
void RegisterGreedyThickThinning(py::module_& learning);
void RegisterNaiveBayes(py::module_& learning);
void RegisterPattern(py::module_& learning);
void RegisterPC(py::module_& learning);
void RegisterTAN(py::module_& learning);
void BindDataSetSampling(py::module_& learning);
void RegisterEMHelper(py::module_& learning);
