// The CPU kernels the language model runs, as loaded by the program.
// Attention against attention written out plainly in double precision:
// decoding with grouped query heads over several streams, partial and fully
// masked tiles of the cache, a soft cap, sink logits, and a prompt long enough
// for the tiled path. Products with Q5_0 and Q6_K weights read wide (a prompt)
// against the same columns read narrow (decoding).
#include "base/ComputeBackends.h"

#include <ggml-alloc.h>
#include <ggml-backend.h>
#include <ggml.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr int headSize = 64;

// Every fifth cell, the second tile of stream 1, and for prompts the cells
// after the row's own are hidden from a query row.
bool hidden(int stream, int row, int rows, int cell, int cells)
{
    return (cell + stream) % 5 == 0 || (stream == 1 && cell >= 64 && cell < 128) ||
           (rows > 1 && cell > cells - rows + row);
}

std::vector<float> fill(ggml_tensor *t, std::mt19937 &random, const std::function<float(size_t)> &value)
{
    std::vector<float> values(size_t(ggml_nelements(t)));
    std::normal_distribution<float> normal;
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = value ? value(i) : ggml_fp16_to_fp32(ggml_fp32_to_fp16(normal(random)));
    std::vector<ggml_fp16_t> half(values.size());
    ggml_fp32_to_fp16_row(values.data(), half.data(), int64_t(values.size()));
    ggml_backend_tensor_set(t, t->type == GGML_TYPE_F16 ? static_cast<void *>(half.data()) : values.data(), 0,
                            ggml_nbytes(t));
    return values;
}

// The CPU backend as the program runs it, on two threads; none when it cannot
// be had on two.
ggml_backend_t cpuBackend()
{
    if (!kestil::loadComputeBackends())
        return nullptr;
    ggml_backend_t cpu = ggml_backend_init_by_type(GGML_BACKEND_DEVICE_TYPE_CPU, nullptr);
    auto setThreads = reinterpret_cast<ggml_backend_set_n_threads_t>(ggml_backend_reg_get_proc_address(
        ggml_backend_dev_backend_reg(ggml_backend_get_device(cpu)), "ggml_backend_set_n_threads"));
    if (!setThreads) {
        ggml_backend_free(cpu);
        return nullptr;
    }
    setThreads(cpu, 2);
    return cpu;
}

TEST(CpuKernelTest, AttentionMatchesPlainAttention)
{
    ggml_backend_t cpu = cpuBackend();
    ASSERT_TRUE(cpu);
    const struct {
        const char *name;
        int queryHeads, keyHeads, streams, rows, cells;
        float softCap;
        bool sinks;
    } cases[] = {{"decode, seven heads a group, four streams", 14, 2, 4, 1, 200, 0.0f, false},
                 {"decode, one stream, soft cap", 8, 2, 1, 1, 130, 30.0f, false},
                 {"decode, sinks, a whole tile", 16, 2, 2, 1, 64, 0.0f, true},
                 {"prompt, tiled", 14, 2, 1, 70, 140, 0.0f, false}};
    std::mt19937 random(7);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ggml_context *context =
            ggml_init({ggml_tensor_overhead() * 16 + ggml_graph_overhead(), nullptr, true});
        const auto tensor = [&](ggml_type type, int a, int b, int d) {
            return ggml_new_tensor_4d(context, type, a, b, d, c.streams);
        };
        ggml_tensor *q = tensor(GGML_TYPE_F32, headSize, c.rows, c.queryHeads);
        ggml_tensor *k = tensor(GGML_TYPE_F16, headSize, c.cells, c.keyHeads);
        ggml_tensor *v = tensor(GGML_TYPE_F16, headSize, c.cells, c.keyHeads);
        ggml_tensor *mask = tensor(GGML_TYPE_F16, c.cells, c.rows, 1);
        ggml_tensor *sinks = c.sinks ? ggml_new_tensor_1d(context, GGML_TYPE_F32, c.queryHeads) : nullptr;
        const double scale = 1.0 / std::sqrt(double(headSize));
        ggml_tensor *out = ggml_flash_attn_ext(context, q, k, v, mask, float(scale), 0.0f, c.softCap);
        if (sinks)
            ggml_flash_attn_ext_add_sinks(out, sinks);
        ggml_cgraph *graph = ggml_new_graph(context);
        ggml_build_forward_expand(graph, out);
        ggml_backend_buffer_t buffer = ggml_backend_alloc_ctx_tensors(context, cpu);
        const std::vector<float> qs = fill(q, random, {}), ks = fill(k, random, {}), vs = fill(v, random, {});
        const std::vector<float> sinkLogits = sinks ? fill(sinks, random, {}) : std::vector<float>();
        fill(mask, random, [&](size_t i) {
            const int cell = int(i % size_t(c.cells)), row = int(i / size_t(c.cells)) % c.rows;
            return hidden(int(i / size_t(c.cells * c.rows)), row, c.rows, cell, c.cells) ? -INFINITY : 0.0f;
        });
        ASSERT_EQ(ggml_backend_graph_compute(cpu, graph), GGML_STATUS_SUCCESS);
        std::vector<float> got(size_t(ggml_nelements(out)));
        ggml_backend_tensor_get(out, got.data(), 0, ggml_nbytes(out));

        double worst = 0;
        for (int s = 0; s < c.streams; ++s)
            for (int r = 0; r < c.rows; ++r)
                for (int h = 0; h < c.queryHeads; ++h) {
                    const float *query = &qs[size_t(((s * c.queryHeads + h) * c.rows + r) * headSize)];
                    const size_t kv =
                        size_t((s * c.keyHeads + h / (c.queryHeads / c.keyHeads)) * c.cells) * headSize;
                    std::vector<double> logit(size_t(c.cells), -INFINITY);
                    double top = c.sinks ? sinkLogits[size_t(h)] : -INFINITY;
                    for (int cell = 0; cell < c.cells; ++cell) {
                        if (hidden(s, r, c.rows, cell, c.cells))
                            continue;
                        double dot = 0;
                        for (int d = 0; d < headSize; ++d)
                            dot += double(query[d]) * ks[kv + size_t(cell * headSize + d)];
                        logit[size_t(cell)] =
                            c.softCap > 0 ? c.softCap * std::tanh(dot * scale / c.softCap) : dot * scale;
                        top = std::max(top, logit[size_t(cell)]);
                    }
                    double total = c.sinks ? std::exp(sinkLogits[size_t(h)] - top) : 0.0;
                    std::vector<double> expected(headSize, 0.0);
                    for (int cell = 0; cell < c.cells; ++cell) {
                        const double weight = std::exp(logit[size_t(cell)] - top);
                        total += weight;
                        for (int d = 0; d < headSize; ++d)
                            expected[size_t(d)] += weight * vs[kv + size_t(cell * headSize + d)];
                    }
                    // out is [head size, query heads, rows, streams]
                    const float *row = &got[size_t(((s * c.rows + r) * c.queryHeads + h) * headSize)];
                    for (int d = 0; d < headSize; ++d)
                        worst = std::max(worst, std::abs(row[d] - expected[size_t(d)] / total));
                }
        EXPECT_LT(worst, 2e-3);
        ggml_backend_buffer_free(buffer);
        ggml_free(context);
    }
    ggml_backend_free(cpu);
}

// A prompt's products unpack Q5_0 weights in panels of 64 rows and Q6_K ones
// in panels of 8; decoding's few columns read the rows as they are. The same
// columns must come out the same both ways, over a last partial panel and an
// odd number of columns, and near the product of the dequantised weights.
TEST(CpuKernelTest, WideProductsMatchNarrowOnes)
{
    ggml_backend_t cpu = cpuBackend();
    ASSERT_TRUE(cpu);
    constexpr int width = 256, rows = 136, columns = 37, narrow = 5;
    std::mt19937 random(11);
    std::normal_distribution<float> normal;
    for (const ggml_type type : {GGML_TYPE_Q5_0, GGML_TYPE_Q6_K}) {
        SCOPED_TRACE(ggml_type_name(type));
        ggml_context *context =
            ggml_init({ggml_tensor_overhead() * 8 + ggml_graph_overhead(), nullptr, true});
        ggml_tensor *weights = ggml_new_tensor_2d(context, type, width, rows);
        ggml_tensor *input = ggml_new_tensor_2d(context, GGML_TYPE_F32, width, columns);
        ggml_tensor *wide = ggml_mul_mat(context, weights, input);
        ggml_tensor *few =
            ggml_mul_mat(context, weights, ggml_view_2d(context, input, width, narrow, input->nb[1], 0));
        ggml_cgraph *graph = ggml_new_graph(context);
        ggml_build_forward_expand(graph, wide);
        ggml_build_forward_expand(graph, few);
        ggml_backend_buffer_t buffer = ggml_backend_alloc_ctx_tensors(context, cpu);

        std::vector<float> w(size_t(width * rows)), x(size_t(width * columns));
        for (float &v : w)
            v = normal(random);
        for (float &v : x)
            v = normal(random);
        std::vector<char> packed(ggml_nbytes(weights));
        ggml_quantize_chunk(type, w.data(), packed.data(), 0, rows, width, nullptr);
        ggml_get_type_traits(type)->to_float(packed.data(), w.data(), int64_t(w.size()));
        ggml_backend_tensor_set(weights, packed.data(), 0, packed.size());
        ggml_backend_tensor_set(input, x.data(), 0, ggml_nbytes(input));
        ASSERT_EQ(ggml_backend_graph_compute(cpu, graph), GGML_STATUS_SUCCESS);

        std::vector<float> gotWide(size_t(rows * columns)), gotFew(size_t(rows * narrow));
        ggml_backend_tensor_get(wide, gotWide.data(), 0, ggml_nbytes(wide));
        ggml_backend_tensor_get(few, gotFew.data(), 0, ggml_nbytes(few));
        double apart = 0, fromPlain = 0;
        for (int c = 0; c < columns; ++c)
            for (int r = 0; r < rows; ++r) {
                const float got = gotWide[size_t(c * rows + r)];
                if (c < narrow)
                    apart = std::max(apart, double(std::abs(got - gotFew[size_t(c * rows + r)])));
                double plain = 0;
                for (int i = 0; i < width; ++i)
                    plain += double(w[size_t(r * width + i)]) * x[size_t(c * width + i)];
                fromPlain = std::max(fromPlain, std::abs(got - plain));
            }
        EXPECT_LT(apart, 1e-4);
        // The input is rounded to 8 bits on the way in.
        EXPECT_LT(fromPlain, 0.5);
        ggml_backend_buffer_free(buffer);
        ggml_free(context);
    }
    ggml_backend_free(cpu);
}

} // namespace
